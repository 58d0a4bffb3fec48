#include "ChatView.h"
#include "MainWindow.h"
#include "PreferencesDialog.h"
#include "TestMain.h"
#include "ThemeManager.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFontDialog>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTimer>

#include <functional>
#include <memory>

namespace {

// A real chat window (it opens no connect dialog by itself) whose members the
// dialog edits. The store is emptied after the window has started, so a test
// sees only what the dialog writes.
struct Window
{
    std::unique_ptr<MainWindow> main { new MainWindow(nullptr, MainWindow::Startup::Quiet) };

    Window() { QSettings().clear(); }

    PreferencesDialog* open()
    {
        auto* dialog = new PreferencesDialog(main.get());
        dialog->show();
        return dialog;
    }
};

// Answers the next modal dialog of type T once it is up (the file, colour
// and font choosers run their own event loop, so the answer comes from a timer).
template <typename T> void answerModal(std::function<void(T*)> answer)
{
    auto* timer = new QTimer;
    timer->setInterval(20);
    auto* waited = new int(0);
    QObject::connect(timer, &QTimer::timeout, [timer, waited, answer] {
        auto* dialog = qobject_cast<T*>(QApplication::activeModalWidget());
        if (dialog)
            answer(dialog);
        if (dialog || ++*waited > 500) {
            timer->stop();
            timer->deleteLater();
            delete waited;
        }
    });
    QTimer::singleShot(0, timer, qOverload<>(&QTimer::start));
}

template <typename T> T* fieldFor(QWidget* dialog, const QString& labelText)
{
    const auto labels = dialog->findChildren<QLabel*>();
    for (QLabel* label : labels) {
        if (label->text() == labelText)
            return qobject_cast<T*>(label->buddy());
    }
    return nullptr;
}

template <typename T> T* widgetWithText(QWidget* dialog, const QString& text)
{
    const auto widgets = dialog->findChildren<T*>();
    for (T* widget : widgets) {
        if (widget->text() == text)
            return widget;
    }
    return nullptr;
}

QPushButton* boxButton(QWidget* dialog, QDialogButtonBox::StandardButton which)
{
    auto* box = dialog->findChild<QDialogButtonBox*>();
    return box ? box->button(which) : nullptr;
}

QLabel* preview(QWidget* dialog)
{
    const auto labels = dialog->findChildren<QLabel*>();
    for (QLabel* label : labels) {
        if (label->minimumHeight() == 60)
            return label;
    }
    return nullptr;
}

QLineEdit* logPathEdit(QWidget* dialog)
{
    const auto edits = dialog->findChildren<QLineEdit*>();
    for (QLineEdit* edit : edits) {
        if (edit->placeholderText() == QLatin1String("Log directory path..."))
            return edit;
    }
    return nullptr;
}

QString stored(const QString& key)
{
    return QSettings().value(key).toString();
}

QString makeImage(const QTemporaryDir& dir, const QString& name)
{
    const QString path = dir.filePath(name);
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    image.save(path);
    return path;
}

// Types a path into the widget-based file dialog's name field and confirms,
// as a user would.
void typeIntoFileDialog(QFileDialog* chooser, const QString& path)
{
    auto* nameEdit = chooser->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
    if (nameEdit)
        nameEdit->setText(path);
    static_cast<QDialog*>(chooser)->accept(); // QFileDialog::accept is protected
    if (chooser->isVisible())
        chooser->reject();
}

void pickColor(QPushButton* button, const QColor& color)
{
    answerModal<QColorDialog>([color](QColorDialog* chooser) {
        chooser->setCurrentColor(color);
        chooser->accept();
    });
    button->click();
}

void pickFile(QPushButton* button, const QString& path)
{
    answerModal<QFileDialog>([path](QFileDialog* chooser) { typeIntoFileDialog(chooser, path); });
    button->click();
}

} // namespace

class TestPrefs : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    void cleanup()
    {
        // Collected first: deleting a dialog also deletes top-level popups it owns.
        QList<QPointer<PreferencesDialog>> open;
        const auto windows = QApplication::topLevelWidgets();
        for (QWidget* window : windows) {
            if (auto* dialog = qobject_cast<PreferencesDialog*>(window))
                open << dialog;
        }
        qDeleteAll(open);
    }

    // ---- Saving ---------------------------------------------------------

    void okWithoutChangesWritesEveryKey_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected");
        QTest::newRow("theme") << "theme"
                               << "dark";
        QTest::newRow("chatFont") << "chatFont" << QFont().toString();
        QTest::newRow("timestampFormat") << "timestampFormat"
                                         << "[HH:mm:ss]";
        QTest::newRow("emojiSize") << "emojiSize"
                                   << "20";
        QTest::newRow("logEnabled") << "logEnabled"
                                    << "false";
        QTest::newRow("logPath") << "logPath"
                                 << "";
        QTest::newRow("chatBgImage") << "chatBgImage"
                                     << "";
        QTest::newRow("chatBgColor") << "chatBgColor"
                                     << "";
        QTest::newRow("autoReconnect") << "autoReconnect"
                                       << "true";
        QTest::newRow("reconnectDelay") << "reconnectDelay"
                                        << "10";
        QTest::newRow("reconnectAttempts") << "reconnectAttempts"
                                           << "0";
        QTest::newRow("pingInterval") << "pingInterval"
                                      << "60";
        QTest::newRow("pingTimeout") << "pingTimeout"
                                     << "45";
        QTest::newRow("acceptInvalidSsl") << "acceptInvalidSsl"
                                          << "false";
    }

    void okWithoutChangesWritesEveryKey()
    {
        QFETCH(QString, key);
        QFETCH(QString, expected);
        Window window;
        window.main->currentTheme = QStringLiteral("dark");
        QPointer<PreferencesDialog> dialog = window.open();
        boxButton(dialog, QDialogButtonBox::Ok)->click();

        QTRY_VERIFY_WITH_TIMEOUT(dialog.isNull(), 10000);
        QCOMPARE(QSettings().allKeys().size(), 14);
        QVERIFY(QSettings().contains(key));
        QCOMPARE(stored(key), expected);
        // The window took the theme it had: OK re-applies it.
        QCOMPARE(window.main->currentTheme, QStringLiteral("dark"));
        QCOMPARE(window.main->styleSheet(), ThemeManager::globalStyleSheet("dark"));
    }

    void storedValuesRoundTrip()
    {
        Window window;
        QFont font(QFontDatabase::families().value(0), 15);
        window.main->m_chatFont = font;
        window.main->m_timestampFormat = QStringLiteral("[hh:mm:ss AP]");
        window.main->m_emojiSize = 33;
        window.main->m_logEnabled = true;
        window.main->m_logPath = QStringLiteral("/var/log/quenvar");
        window.main->m_chatBgColor = QColor(QStringLiteral("#123456"));
        window.main->m_autoReconnect = false;
        window.main->m_reconnectDelay = 250;
        window.main->m_reconnectAttempts = 7;
        window.main->m_pingInterval = 500;
        window.main->m_pingTimeout = 100;
        window.main->m_acceptInvalidSSl = true;

        PreferencesDialog* dialog = window.open();
        boxButton(dialog, QDialogButtonBox::Apply)->click();

        QCOMPARE(stored("chatFont"), font.toString());
        QCOMPARE(stored("timestampFormat"), QStringLiteral("[hh:mm:ss AP]"));
        QCOMPARE(QSettings().value("emojiSize").toInt(), 33);
        QCOMPARE(QSettings().value("logEnabled").toBool(), true);
        QCOMPARE(stored("logPath"), QStringLiteral("/var/log/quenvar"));
        QCOMPARE(stored("chatBgImage"), QString());
        QCOMPARE(stored("chatBgColor"), QStringLiteral("#123456"));
        QCOMPARE(QSettings().value("autoReconnect").toBool(), false);
        QCOMPARE(QSettings().value("reconnectDelay").toInt(), 250);
        QCOMPARE(QSettings().value("reconnectAttempts").toInt(), 7);
        QCOMPARE(QSettings().value("pingInterval").toInt(), 500);
        QCOMPARE(QSettings().value("pingTimeout").toInt(), 100);
        QCOMPARE(QSettings().value("acceptInvalidSsl").toBool(), true);

        // What the window received equals what it had.
        QCOMPARE(window.main->m_chatFont, font);
        QCOMPARE(window.main->m_timestampFormat, QStringLiteral("[hh:mm:ss AP]"));
        QCOMPARE(window.main->m_emojiSize, 33);
        QCOMPARE(window.main->m_logEnabled, true);
        QCOMPARE(window.main->m_logPath, QStringLiteral("/var/log/quenvar"));
        QCOMPARE(window.main->m_chatBgColor, QColor(QStringLiteral("#123456")));
        QCOMPARE(window.main->m_autoReconnect, false);
        QCOMPARE(window.main->m_reconnectDelay, 250);
        QCOMPARE(window.main->m_reconnectAttempts, 7);
        QCOMPARE(window.main->m_pingInterval, 500);
        QCOMPARE(window.main->m_pingTimeout, 100);
        QCOMPARE(window.main->m_acceptInvalidSSl, true);
        QVERIFY(dialog->isVisible()); // Apply keeps the dialog open
    }

    void editedControlsAreSaved()
    {
        Window window;
        PreferencesDialog* dialog = window.open();
        fieldFor<QComboBox>(dialog, "Timestamp:")->setCurrentText("hh:mm");
        fieldFor<QSpinBox>(dialog, "Emoji size:")->setValue(40);
        widgetWithText<QCheckBox>(dialog, "Enable logging")->setChecked(true);
        logPathEdit(dialog)->setText("  /tmp/irc logs  ");
        widgetWithText<QCheckBox>(dialog, "Auto-reconnect on disconnect")->setChecked(false);
        fieldFor<QSpinBox>(dialog, "Reconnect delay:")->setValue(30);
        fieldFor<QSpinBox>(dialog, "PING interval:")->setValue(120);
        fieldFor<QSpinBox>(dialog, "PONG timeout:")->setValue(20);
        widgetWithText<QCheckBox>(dialog, "Accept invalid SSL certificates")->setChecked(true);
        boxButton(dialog, QDialogButtonBox::Apply)->click();

        QCOMPARE(stored("timestampFormat"), QStringLiteral("hh:mm"));
        QCOMPARE(QSettings().value("emojiSize").toInt(), 40);
        QCOMPARE(QSettings().value("logEnabled").toBool(), true);
        QCOMPARE(stored("logPath"), QStringLiteral("/tmp/irc logs"));
        QCOMPARE(QSettings().value("autoReconnect").toBool(), false);
        QCOMPARE(QSettings().value("reconnectDelay").toInt(), 30);
        QCOMPARE(QSettings().value("pingInterval").toInt(), 120);
        QCOMPARE(QSettings().value("pingTimeout").toInt(), 20);
        QCOMPARE(QSettings().value("acceptInvalidSsl").toBool(), true);
        QCOMPARE(window.main->m_logPath, QStringLiteral("/tmp/irc logs"));
        QCOMPARE(window.main->m_timestampFormat, QStringLiteral("hh:mm"));
    }

    void unknownTimestampFormatBecomesFirstChoice()
    {
        Window window;
        window.main->m_timestampFormat = QStringLiteral("yyyy %1 <b>");
        PreferencesDialog* dialog = window.open();
        QCOMPARE(fieldFor<QComboBox>(dialog, "Timestamp:")->currentText(), QStringLiteral("[HH:mm:ss]"));
        boxButton(dialog, QDialogButtonBox::Apply)->click();
        QCOMPARE(stored("timestampFormat"), QStringLiteral("[HH:mm:ss]"));
    }

    void cancelWritesNothing()
    {
        Window window;
        QPointer<PreferencesDialog> dialog = window.open();
        fieldFor<QSpinBox>(dialog, "Emoji size:")->setValue(40);
        boxButton(dialog, QDialogButtonBox::Cancel)->click();
        QTRY_VERIFY_WITH_TIMEOUT(dialog.isNull(), 10000);
        QVERIFY(QSettings().allKeys().isEmpty());
        QCOMPARE(window.main->m_emojiSize, 20);
    }

    // ---- Controls -------------------------------------------------------

    void spinBoxRangesAndTexts_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<QString>("objectName");
        QTest::newRow("emoji") << "Emoji size:" << 12 << 48 << ""
                               << "prefsSpinBox";
        QTest::newRow("min prefix") << "Min prefix length:" << 1 << 10 << ""
                                    << "prefsSpinBox";
        QTest::newRow("delay") << "Reconnect delay:" << 1 << 300 << " sec"
                               << "prefsWideSpin";
        QTest::newRow("attempts") << "Max attempts:" << 0 << 100 << ""
                                  << "prefsWideSpin";
        QTest::newRow("ping") << "PING interval:" << 10 << 600 << " sec"
                              << "prefsWideSpin";
        QTest::newRow("pong") << "PONG timeout:" << 5 << 120 << " sec"
                              << "prefsWideSpin";
    }

    void spinBoxRangesAndTexts()
    {
        QFETCH(QString, label);
        QFETCH(int, minimum);
        QFETCH(int, maximum);
        QFETCH(QString, suffix);
        QFETCH(QString, objectName);
        Window window;
        PreferencesDialog* dialog = window.open();
        auto* spin = fieldFor<QSpinBox>(dialog, label);
        QVERIFY(spin);
        QCOMPARE(spin->minimum(), minimum);
        QCOMPARE(spin->maximum(), maximum);
        QCOMPARE(spin->suffix(), suffix);
        QCOMPARE(spin->objectName(), objectName);
    }

    void maxAttemptsZeroReadsUnlimited()
    {
        Window window;
        window.main->m_reconnectAttempts = 3;
        PreferencesDialog* dialog = window.open();
        auto* spin = fieldFor<QSpinBox>(dialog, "Max attempts:");
        QCOMPARE(spin->text(), QStringLiteral("3"));
        spin->setValue(0);
        QCOMPARE(spin->text(), QStringLiteral("Unlimited"));
        boxButton(dialog, QDialogButtonBox::Apply)->click();
        QCOMPARE(stored("reconnectAttempts"), QStringLiteral("0"));
        QCOMPARE(window.main->m_reconnectAttempts, 0);
    }

    void pagesAndObjectNames()
    {
        Window window;
        PreferencesDialog* dialog = window.open();
        auto* tabs = dialog->findChild<QTabWidget*>();
        QVERIFY(tabs);
        QCOMPARE(tabs->count(), 3);
        QCOMPARE(tabs->tabText(0), QStringLiteral("Interface"));
        QCOMPARE(tabs->tabText(1), QStringLiteral("Chat"));
        QCOMPARE(tabs->tabText(2), QStringLiteral("Network"));
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Preferences"));
        QCOMPARE(fieldFor<QWidget>(dialog, "Chat font:")->objectName(), QStringLiteral("prefsFontButton"));
        QCOMPARE(fieldFor<QWidget>(dialog, "Timestamp:")->objectName(), QStringLiteral("prefsWideCombo"));
        QCOMPARE(fieldFor<QWidget>(dialog, "Auth method:")->objectName(), QStringLiteral("prefsWideCombo"));
        QCOMPARE(widgetWithText<QPushButton>(dialog, "Choose Image...")->objectName(),
            QStringLiteral("prefsBgButton"));
        QCOMPARE(widgetWithText<QPushButton>(dialog, "Solid Color...")->objectName(),
            QStringLiteral("prefsBgButton"));
        QCOMPARE(
            widgetWithText<QPushButton>(dialog, "Reset")->objectName(), QStringLiteral("prefsDeleteButton"));
        QCOMPARE(widgetWithText<QPushButton>(dialog, "...")->objectName(), QStringLiteral("prefsBgButton"));
        QCOMPARE(boxButton(dialog, QDialogButtonBox::Ok)->objectName(), QStringLiteral("connectButton"));
        QCOMPARE(boxButton(dialog, QDialogButtonBox::Apply)->objectName(), QStringLiteral("connectButton"));
        QCOMPARE(boxButton(dialog, QDialogButtonBox::Cancel)->objectName(), QStringLiteral("cancelButton"));
        QVERIFY(dialog->testAttribute(Qt::WA_DeleteOnClose));
        QVERIFY(!dialog->isModal());
        QVERIFY(!(dialog->windowFlags() & Qt::WindowMaximizeButtonHint));
    }

    void sizeIsFixed()
    {
        Window window;
        PreferencesDialog* dialog = window.open();
        QVERIFY(dialog->width() >= 560);
        QVERIFY(dialog->height() >= 520);
        QCOMPARE(dialog->minimumSize(), dialog->maximumSize());
        // Every control fits: nothing is squeezed below what it asks for.
        const auto buttons = dialog->findChildren<QPushButton*>();
        for (QPushButton* button : buttons) {
            if (button->isVisible())
                QVERIFY2(button->width() >= button->minimumSizeHint().width(), qPrintable(button->text()));
        }
    }

    void inertControlsOpenWithFixedValues()
    {
        Window window;
        for (int opening = 0; opening < 2; ++opening) {
            PreferencesDialog* dialog = window.open();
            auto* newTabs = widgetWithText<QCheckBox>(dialog, "Switch to new tabs automatically");
            auto* suffix = fieldFor<QLineEdit>(dialog, "Nick completion suffix:");
            auto* minPrefix = fieldFor<QSpinBox>(dialog, "Min prefix length:");
            auto* highlight = widgetWithText<QCheckBox>(dialog, "Highlight when your nick is mentioned");
            auto* sound = widgetWithText<QCheckBox>(dialog, "Play sound on highlight");
            auto* sorting = fieldFor<QComboBox>(dialog, "User list sorting:");
            auto* auth = fieldFor<QComboBox>(dialog, "Auth method:");
            QVERIFY(newTabs && suffix && minPrefix && highlight && sound && sorting && auth);

            QVERIFY(newTabs->isChecked());
            QCOMPARE(suffix->text(), QStringLiteral(":"));
            QCOMPARE(suffix->maxLength(), 3);
            QCOMPARE(minPrefix->value(), 1);
            QVERIFY(highlight->isChecked());
            QVERIFY(!sound->isChecked());
            QCOMPARE(sorting->currentText(), QStringLiteral("Alphabetical"));
            QCOMPARE(sorting->count(), 2);
            QCOMPARE(sorting->itemText(1), QStringLiteral("By status then alpha"));
            QCOMPARE(auth->currentText(), QStringLiteral("Server password"));
            QCOMPARE(auth->count(), 3);
            QCOMPARE(auth->itemText(1), QStringLiteral("SASL PLAIN"));
            QCOMPARE(auth->itemText(2), QStringLiteral("SASL EXTERNAL"));

            newTabs->setChecked(false);
            suffix->setText(",");
            minPrefix->setValue(5);
            highlight->setChecked(false);
            sound->setChecked(true);
            sorting->setCurrentIndex(1);
            auth->setCurrentIndex(2);
            QPointer<PreferencesDialog> guard = dialog;
            boxButton(dialog, QDialogButtonBox::Ok)->click();
            QTRY_VERIFY_WITH_TIMEOUT(guard.isNull(), 10000);
            QCOMPARE(QSettings().allKeys().size(), 14); // nothing stored for them
        }
    }

    // ---- Background ------------------------------------------------------

    void previewStartsFromCurrentBackground_data()
    {
        QTest::addColumn<QString>("image");
        QTest::addColumn<QString>("color");
        QTest::addColumn<QString>("styleStart");
        QTest::addColumn<QString>("text");
        QTest::newRow("none") << ""
                              << ""
                              << "background-color: #f5f5f5;"
                              << "None image...";
        QTest::newRow("colour") << ""
                                << "#00ff80"
                                << "background-color: #00ff80;"
                                << "";
        QTest::newRow("image") << "/pics/a b.png"
                               << ""
                               << "border-image: url(\"/pics/a b.png\") 0 0 0 0 stretch stretch;"
                               << "";
    }

    void previewStartsFromCurrentBackground()
    {
        QFETCH(QString, image);
        QFETCH(QString, color);
        QFETCH(QString, styleStart);
        QFETCH(QString, text);
        Window window;
        window.main->m_chatBgImage = image;
        window.main->m_chatBgColor = color.isEmpty() ? QColor() : QColor(color);
        PreferencesDialog* dialog = window.open();
        QLabel* label = preview(dialog);
        QVERIFY(label);
        QCOMPARE(label->styleSheet(), styleStart + " border: 1px solid #999; border-radius: 4px;");
        QCOMPARE(label->text(), text);
    }

    void imageAfterColorClearsColor()
    {
        QTemporaryDir dir;
        const QString image = makeImage(dir, "bg.png");
        Window window;
        PreferencesDialog* dialog = window.open();

        pickColor(widgetWithText<QPushButton>(dialog, "Solid Color..."), QColor("#336699"));
        QCOMPARE(preview(dialog)->styleSheet(),
            QStringLiteral("background-color: #336699; border: 1px solid #999; border-radius: 4px;"));
        QCOMPARE(preview(dialog)->text(), QString());

        pickFile(widgetWithText<QPushButton>(dialog, "Choose Image..."), image);
        QVERIFY(preview(dialog)->styleSheet().startsWith("border-image: url(\"" + image + "\")"));

        QPointer<PreferencesDialog> guard = dialog;
        boxButton(dialog, QDialogButtonBox::Ok)->click();
        QTRY_VERIFY_WITH_TIMEOUT(guard.isNull(), 10000);
        QCOMPARE(stored("chatBgImage"), image);
        QCOMPARE(stored("chatBgColor"), QString());
        QCOMPARE(window.main->m_chatBgImage, image);
        QVERIFY(!window.main->m_chatBgColor.isValid());
    }

    void colorAfterImageClearsImage()
    {
        Window window;
        window.main->m_chatBgImage = QStringLiteral("/somewhere/old.png");
        PreferencesDialog* dialog = window.open();
        pickColor(widgetWithText<QPushButton>(dialog, "Solid Color..."), QColor("#abcdef"));
        boxButton(dialog, QDialogButtonBox::Apply)->click();
        QCOMPARE(stored("chatBgImage"), QString());
        QCOMPARE(stored("chatBgColor"), QStringLiteral("#abcdef"));
    }

    void resetShowsNoneAndSavesEmpty_data()
    {
        QTest::addColumn<QString>("image");
        QTest::addColumn<QString>("color");
        QTest::newRow("from colour") << ""
                                     << "#224466";
        QTest::newRow("from image") << "/pics/old.png"
                                    << "";
    }

    void resetShowsNoneAndSavesEmpty()
    {
        QFETCH(QString, image);
        QFETCH(QString, color);
        Window window;
        window.main->m_chatBgImage = image;
        window.main->m_chatBgColor = color.isEmpty() ? QColor() : QColor(color);
        PreferencesDialog* dialog = window.open();
        QCOMPARE(preview(dialog)->text(), QString());
        widgetWithText<QPushButton>(dialog, "Reset")->click();
        QCOMPARE(preview(dialog)->text(), QStringLiteral("None image..."));
        QVERIFY(preview(dialog)->styleSheet().startsWith("background-color: #f5f5f5;"));
        boxButton(dialog, QDialogButtonBox::Apply)->click();
        QVERIFY(QSettings().contains("chatBgImage"));
        QVERIFY(QSettings().contains("chatBgColor"));
        QCOMPARE(stored("chatBgImage"), QString());
        QCOMPARE(stored("chatBgColor"), QString());
        QVERIFY(window.main->m_chatBgImage.isEmpty());
        QVERIFY(!window.main->m_chatBgColor.isValid());
    }

    void colorChooserStartsFromChosenColor()
    {
        Window window;
        window.main->m_chatBgColor = QColor("#102030");
        PreferencesDialog* dialog = window.open();
        QColor seen;
        QString title;
        answerModal<QColorDialog>([&](QColorDialog* chooser) {
            seen = chooser->currentColor();
            title = chooser->windowTitle();
            chooser->reject();
        });
        widgetWithText<QPushButton>(dialog, "Solid Color...")->click();
        QCOMPARE(seen, QColor("#102030"));
        QCOMPARE(title, QStringLiteral("Select Background Color"));
        // Cancelled: nothing changes.
        QVERIFY(preview(dialog)->styleSheet().startsWith("background-color: #102030;"));
    }

    void cancelledImageChooserChangesNothing()
    {
        Window window;
        window.main->m_chatBgColor = QColor("#405060");
        PreferencesDialog* dialog = window.open();
        QString title;
        QStringList filters;
        answerModal<QFileDialog>([&](QFileDialog* chooser) {
            title = chooser->windowTitle();
            filters = chooser->nameFilters();
            chooser->reject();
        });
        widgetWithText<QPushButton>(dialog, "Choose Image...")->click();
        QCOMPARE(title, QStringLiteral("Select Background Image"));
        QCOMPARE(filters, QStringList { "Images (*.png *.jpg *.jpeg *.bmp *.gif)" });
        boxButton(dialog, QDialogButtonBox::Apply)->click();
        QCOMPARE(stored("chatBgColor"), QStringLiteral("#405060"));
        QCOMPARE(stored("chatBgImage"), QString());
    }

    void logDirectoryChooserFillsPath()
    {
        QTemporaryDir dir;
        Window window;
        PreferencesDialog* dialog = window.open();
        QString title;
        QFileDialog::FileMode mode = QFileDialog::AnyFile;
        answerModal<QFileDialog>([&](QFileDialog* chooser) {
            title = chooser->windowTitle();
            mode = chooser->fileMode();
            typeIntoFileDialog(chooser, dir.path());
        });
        widgetWithText<QPushButton>(dialog, "...")->click();
        QCOMPARE(title, QStringLiteral("Select log directory"));
        QCOMPARE(mode, QFileDialog::Directory);
        QCOMPARE(QDir(logPathEdit(dialog)->text()), QDir(dir.path()));

        answerModal<QFileDialog>([](QFileDialog* chooser) { chooser->reject(); });
        widgetWithText<QPushButton>(dialog, "...")->click();
        QCOMPARE(QDir(logPathEdit(dialog)->text()), QDir(dir.path()));
    }

    // ---- Font -------------------------------------------------------------

    void fontPickedThenCancelIsSavedByNextApply()
    {
        Window window;
        const QFont wanted(QFontDatabase::families().value(0), 17);
        QPointer<PreferencesDialog> first = window.open();
        QPushButton* fontButton = fieldFor<QPushButton>(first, "Chat font:");
        QFont offered;
        answerModal<QFontDialog>([&](QFontDialog* chooser) {
            chooser->setCurrentFont(wanted);
            offered = chooser->currentFont();
            chooser->accept();
        });
        fontButton->click();
        QCOMPARE(offered.pointSize(), 17);
        QCOMPARE(fontButton->text(), offered.family() + " 17");
        // Kept by the window at once, but neither applied nor saved.
        QVERIFY(window.main->inputLine->font().toString() != offered.toString());
        QCOMPARE(window.main->m_chatFont.toString(), offered.toString());
        QVERIFY(QSettings().allKeys().isEmpty());

        boxButton(first, QDialogButtonBox::Cancel)->click();
        QTRY_VERIFY_WITH_TIMEOUT(first.isNull(), 10000);
        QVERIFY(QSettings().allKeys().isEmpty());

        PreferencesDialog* second = window.open();
        QCOMPARE(fieldFor<QPushButton>(second, "Chat font:")->text(), offered.family() + " 17");
        boxButton(second, QDialogButtonBox::Apply)->click();
        QCOMPARE(stored("chatFont"), offered.toString());
        QCOMPARE(window.main->m_chatFont.toString(), offered.toString());
        // Applied now: every chat view shows it, and the input line its family
        // (the theme's sheet keeps the line's text size).
        QCOMPARE(window.main->inputLine->font().family(), offered.family());
        for (const MainWindow::TabInfo& tab : std::as_const(window.main->tabs))
            QCOMPARE(tab.chatView->font().toString(), offered.toString());
    }

    void cancelledFontChooserChangesNothing()
    {
        Window window;
        window.main->m_chatFont = QFont(QFontDatabase::families().value(0), 11);
        PreferencesDialog* dialog = window.open();
        QPushButton* fontButton = fieldFor<QPushButton>(dialog, "Chat font:");
        const QString before = fontButton->text();
        QCOMPARE(before, window.main->m_chatFont.family() + " 11");
        answerModal<QFontDialog>([](QFontDialog* chooser) {
            chooser->setCurrentFont(QFont(QFontDatabase::families().value(0), 30));
            chooser->reject();
        });
        fontButton->click();
        QCOMPARE(fontButton->text(), before);
        QVERIFY(!window.main->m_chatFontChosen);
    }

    // ---- Theme ------------------------------------------------------------

    void themeComboRoundTrip_data()
    {
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<int>("choice");
        QTest::addColumn<QString>("chosen");
        QTest::newRow("light to dark") << "light"
                                       << "Light" << 1 << "dark";
        QTest::newRow("dark to glass") << "dark"
                                       << "Dark" << 2 << "glass";
        QTest::newRow("glass to light") << "glass"
                                        << "Glass" << 0 << "light";
        QTest::newRow("dark stays") << "dark"
                                    << "Dark" << 1 << "dark";
        QTest::newRow("unknown to glass") << "neon"
                                          << "Light" << 2 << "glass";
    }

    void themeComboRoundTrip()
    {
        QFETCH(QString, current);
        QFETCH(QString, shown);
        QFETCH(int, choice);
        QFETCH(QString, chosen);
        Window window;
        window.main->currentTheme = current;
        PreferencesDialog* dialog = window.open();
        auto* combo = fieldFor<QComboBox>(dialog, "Theme:");
        QVERIFY(combo);
        QCOMPARE(combo->count(), 3);
        QCOMPARE(combo->currentText(), shown);
        QVERIFY(dialog->styleSheet().startsWith(ThemeManager::preferencesDialogStyleSheet(current)));

        combo->setCurrentIndex(choice);
        boxButton(dialog, QDialogButtonBox::Apply)->click();
        QCOMPARE(stored("theme"), chosen);
        QCOMPARE(window.main->styleSheet(), ThemeManager::globalStyleSheet(chosen));
        QCOMPARE(window.main->currentTheme, chosen);
        QVERIFY(dialog->styleSheet().startsWith(ThemeManager::preferencesDialogStyleSheet(chosen)));
        // Only the dark pages need their text lightened.
        QCOMPARE(dialog->styleSheet().contains("color: #DDDDDD"), chosen == "dark");

        PreferencesDialog* again = window.open();
        QCOMPARE(fieldFor<QComboBox>(again, "Theme:")->currentData().toString(), chosen);
    }

    // Writes each page in each theme to QUENVAR_SCREENSHOT_DIR when set.
    void screenshots()
    {
        const QString dir = qEnvironmentVariable("QUENVAR_SCREENSHOT_DIR");
        if (dir.isEmpty())
            QSKIP("QUENVAR_SCREENSHOT_DIR not set");
        for (const QString& theme : { QStringLiteral("light"), QStringLiteral("dark") }) {
            Window window;
            window.main->currentTheme = theme;
            PreferencesDialog* dialog = window.open();
            auto* tabs = dialog->findChild<QTabWidget*>();
            for (int page = 0; page < tabs->count(); ++page) {
                tabs->setCurrentIndex(page);
                QTest::qWait(50);
                const QPixmap shot = dialog->grab();
                QCOMPARE(shot.size(), dialog->size());
                QVERIFY(shot.save(QStringLiteral("%1/prefs-%2-%3.png").arg(dir, theme, tabs->tabText(page))));
            }
            delete dialog;
        }
    }
};

QUENVAR_TEST_MAIN(TestPrefs)
#include "tst_prefs.moc"
