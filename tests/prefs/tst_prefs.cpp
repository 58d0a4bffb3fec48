#include "ChatView.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "ModalDriver.h"
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

#include <memory>

namespace {

// A real chat window (it opens no connect dialog by itself) whose members the
// dialog edits. Unless told to keep it, the store is emptied once the window
// has loaded it, so a test sees only what the dialog writes.
struct Window
{
    std::unique_ptr<MainWindow> main { new MainWindow(nullptr, MainWindow::Startup::Quiet) };

    explicit Window(bool keepStore = false)
    {
        if (!keepStore)
            QSettings().clear();
    }

    PreferencesDialog* open()
    {
        auto* dialog = new PreferencesDialog(main.get());
        dialog->show();
        return dialog;
    }
};

// The button or check box showing `text`, or else the control labelled `text`.
template <typename T> T* control(QWidget* dialog, const QString& text)
{
    for (QAbstractButton* button : dialog->findChildren<QAbstractButton*>()) {
        if (button->text() == text)
            return qobject_cast<T*>(button);
    }
    for (QLabel* label : dialog->findChildren<QLabel*>()) {
        if (label->text() == text)
            return qobject_cast<T*>(label->buddy());
    }
    return nullptr;
}

QPushButton* boxButton(QWidget* dialog, QDialogButtonBox::StandardButton which)
{
    return dialog->findChild<QDialogButtonBox*>()->button(which);
}

void apply(QWidget* dialog)
{
    boxButton(dialog, QDialogButtonBox::Apply)->click();
}

// Clicks OK or Cancel; true once the dialog has deleted itself.
bool closeWith(PreferencesDialog* dialog, QDialogButtonBox::StandardButton which)
{
    QPointer<PreferencesDialog> guard = dialog;
    boxButton(dialog, which)->click();
    return QTest::qWaitFor([&guard] { return guard.isNull(); }, 10000);
}

QLabel* preview(QWidget* dialog)
{
    return dialog->findChild<QLabel*>(QStringLiteral("prefsBgPreview"));
}

QLineEdit* logPathEdit(QWidget* dialog)
{
    for (QLineEdit* edit : dialog->findChildren<QLineEdit*>()) {
        if (edit->placeholderText() == QLatin1String("Log directory path..."))
            return edit;
    }
    return nullptr;
}

QString stored(const QString& key)
{
    return QSettings().value(key).toString();
}

// Every stored key as "key=value", sorted.
QStringList storedPairs()
{
    QSettings settings;
    QStringList pairs;
    for (const QString& key : settings.allKeys())
        pairs << key + QLatin1Char('=') + settings.value(key).toString();
    pairs.sort();
    return pairs;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

QStringList items(QComboBox* combo)
{
    QStringList texts;
    for (int i = 0; i < combo->count(); ++i)
        texts << combo->itemText(i);
    return texts;
}

// Types a path into the widget-based file dialog's name field and confirms,
// as a user would.
void typeIntoFileDialog(QFileDialog* chooser, const QString& path)
{
    if (auto* nameEdit = chooser->findChild<QLineEdit*>(QStringLiteral("fileNameEdit")))
        nameEdit->setText(path);
    static_cast<QDialog*>(chooser)->accept(); // QFileDialog::accept is protected
    if (chooser->isVisible())
        chooser->reject();
}

const QString PreviewFrame = QStringLiteral(" border: 1px solid #999; border-radius: 4px;");

} // namespace

class TestPrefs : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    // ---- Saving ---------------------------------------------------------

    // Cancel writes nothing. On a window started on an empty store, OK writes
    // the first-start defaults under every key and re-applies the theme.
    void cancelWritesNothingOkWritesEveryKey()
    {
        Window window;
        window.main->currentTheme = QStringLiteral("dark");
        PreferencesDialog* dialog = window.open();
        control<QSpinBox>(dialog, "Emoji size:")->setValue(40);
        QVERIFY(closeWith(dialog, QDialogButtonBox::Cancel));
        QVERIFY(QSettings().allKeys().isEmpty());

        QVERIFY(closeWith(window.open(), QDialogButtonBox::Ok));
        QCOMPARE(storedPairs(),
            sorted({ "theme=dark", "chatFont=" + QFont().toString(), "timestampFormat=[HH:mm:ss]",
                "emojiSize=20", "scrollbackLines=0", "logEnabled=false",
                "logPath=", "backlogLines=50", "chatBgImage=", "chatBgColor=", "reopenNetworks=true", "autoReconnect=true",
                "reconnectDelay=10",
                "reconnectAttempts=0", "pingInterval=60", "pingTimeout=45", "acceptInvalidSsl=false" }));
        QCOMPARE(window.main->currentTheme, QStringLiteral("dark"));
        QCOMPARE(window.main->styleSheet(), ThemeManager::globalStyleSheet("dark"));
    }

    // Stored values are loaded by the window, shown by the dialog and stored
    // again unchanged by Apply.
    void storeRoundTrip()
    {
        const QString font = QFont(QFontDatabase::families().value(0), 15).toString();
        const QStringList pairs = sorted({ "theme=glass", "chatFont=" + font, "timestampFormat=[hh:mm:ss AP]",
            "emojiSize=33", "scrollbackLines=5000", "logEnabled=true", "logPath=/var/log/quenvar", "backlogLines=0", "chatBgImage=/pics/a b.png",
            "chatBgColor=#123456", "reopenNetworks=false", "autoReconnect=false", "reconnectDelay=250", "reconnectAttempts=7",
            "pingInterval=500", "pingTimeout=100", "acceptInvalidSsl=true" });
        QSettings settings;
        for (const QString& pair : pairs)
            settings.setValue(pair.section('=', 0, 0), pair.section('=', 1));
        settings.sync();

        Window window(true);
        PreferencesDialog* dialog = window.open();
        QSettings().clear();
        apply(dialog);
        QCOMPARE(storedPairs(), pairs);
        QVERIFY(dialog->isVisible()); // Apply keeps the dialog open
    }

    void editedControlsAreSaved()
    {
        Window window;
        PreferencesDialog* dialog = window.open();
        control<QComboBox>(dialog, "Timestamp:")->setCurrentText("hh:mm");
        control<QSpinBox>(dialog, "Emoji size:")->setValue(40);
        control<QSpinBox>(dialog, "Scrollback lines:")->setValue(2000);
        control<QCheckBox>(dialog, "Enable logging")->setChecked(true);
        logPathEdit(dialog)->setText("  /tmp/irc logs  ");
        control<QSpinBox>(dialog, "Backlog lines:")->setValue(200);
        control<QCheckBox>(dialog, "Reopen the networks open at exit")->setChecked(false);
        control<QCheckBox>(dialog, "Auto-reconnect on disconnect")->setChecked(false);
        control<QSpinBox>(dialog, "Reconnect delay:")->setValue(30);
        control<QSpinBox>(dialog, "Max attempts:")->setValue(5);
        control<QSpinBox>(dialog, "PING interval:")->setValue(120);
        control<QSpinBox>(dialog, "PONG timeout:")->setValue(20);
        control<QCheckBox>(dialog, "Accept invalid SSL certificates")->setChecked(true);
        QVERIFY(closeWith(dialog, QDialogButtonBox::Ok));

        QCOMPARE(storedPairs(),
            sorted({ "theme=light", "chatFont=" + QFont().toString(), "timestampFormat=hh:mm", "emojiSize=40",
                "scrollbackLines=2000", "logEnabled=true", "logPath=/tmp/irc logs", "backlogLines=200",
                "chatBgImage=", "chatBgColor=", "reopenNetworks=false", "autoReconnect=false", "reconnectDelay=30",
                "reconnectAttempts=5", "pingInterval=120", "pingTimeout=20", "acceptInvalidSsl=true" }));
    }

    // Values the controls cannot show (an old or hand-edited store) open as
    // the nearest choice and are saved as that.
    void unknownValuesAreRepairedOnSave()
    {
        Window window;
        window.main->currentTheme = QStringLiteral("neon");
        window.main->prefs.timestampFormat = QStringLiteral("yyyy %1 <b>");
        window.main->prefs.emojiSize = 99;
        PreferencesDialog* dialog = window.open();
        QCOMPARE(control<QComboBox>(dialog, "Theme:")->currentText(), QStringLiteral("Light"));
        QCOMPARE(control<QComboBox>(dialog, "Timestamp:")->currentText(), QStringLiteral("[HH:mm:ss]"));
        apply(dialog);
        QCOMPARE(stored("theme"), QStringLiteral("light"));
        QCOMPARE(stored("timestampFormat"), QStringLiteral("[HH:mm:ss]"));
        QCOMPARE(stored("emojiSize"), QStringLiteral("48"));
    }

    // ---- Controls -------------------------------------------------------

    void pagesAndTexts()
    {
        Window window;
        PreferencesDialog* dialog = window.open();
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Preferences"));
        auto* tabs = dialog->findChild<QTabWidget*>();
        QStringList pages;
        for (int i = 0; i < tabs->count(); ++i)
            pages << tabs->tabText(i);
        QCOMPARE(pages, (QStringList { "Interface", "Chat", "Network" }));
        // The themes style OK and Apply as the accent button.
        QCOMPARE(boxButton(dialog, QDialogButtonBox::Ok)->objectName(), QStringLiteral("connectButton"));
        QCOMPARE(boxButton(dialog, QDialogButtonBox::Apply)->objectName(), QStringLiteral("connectButton"));
        QCOMPARE(boxButton(dialog, QDialogButtonBox::Cancel)->objectName(), QStringLiteral("cancelButton"));
        QVERIFY(!(dialog->windowFlags() & Qt::WindowMaximizeButtonHint));
        // Fixed in size, and every button fits in it.
        QCOMPARE(dialog->minimumSize(), dialog->maximumSize());
        for (QPushButton* button : dialog->findChildren<QPushButton*>()) {
            if (button->isVisible())
                QVERIFY2(button->width() >= button->minimumSizeHint().width(), qPrintable(button->text()));
        }
        QCOMPARE(control<QSpinBox>(dialog, "Reconnect delay:")->text(), QStringLiteral("10 sec"));
        QCOMPARE(control<QSpinBox>(dialog, "PONG timeout:")->text(), QStringLiteral("45 sec"));
        // No limit is stored as 0.
        QCOMPARE(control<QSpinBox>(dialog, "Max attempts:")->text(), QStringLiteral("Unlimited"));
        // Shown for things the window does not offer yet; none of them is stored.
        QCOMPARE(items(control<QComboBox>(dialog, "User list sorting:")),
            (QStringList { "Alphabetical", "By status then alpha" }));
        QCOMPARE(items(control<QComboBox>(dialog, "Auth method:")),
            (QStringList { "Server password", "SASL PLAIN", "SASL EXTERNAL" }));
    }

    // ---- Background ------------------------------------------------------

    void resetShowsNoneAndSavesEmpty()
    {
        Window window;
        window.main->prefs.chatBgImage = QStringLiteral("/pics/old.png");
        window.main->prefs.chatBgColor = QColor("#224466");
        PreferencesDialog* dialog = window.open();
        // The image wins over the colour; no "none" text over a background.
        QCOMPARE(preview(dialog)->styleSheet(),
            "border-image: url(\"/pics/old.png\") 0 0 0 0 stretch stretch;" + PreviewFrame);
        QCOMPARE(preview(dialog)->text(), QString());
        control<QPushButton>(dialog, "Reset")->click();
        QCOMPARE(preview(dialog)->text(), QStringLiteral("None image..."));
        QCOMPARE(preview(dialog)->styleSheet(), "background-color: #f5f5f5;" + PreviewFrame);
        apply(dialog);
        QVERIFY(storedPairs().contains("chatBgImage="));
        QVERIFY(storedPairs().contains("chatBgColor="));
    }

    // Cancelled choosers change nothing; an image and a solid colour exclude
    // each other, choosing one drops the other.
    void imageAndColorChoosers()
    {
        QTemporaryDir dir;
        const QString image = dir.filePath("bg.png");
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QVERIFY(picture.save(image));
        Window window;
        window.main->prefs.chatBgColor = QColor("#102030");
        PreferencesDialog* dialog = window.open();
        QColor offered;
        QString colorTitle;
        ModalDriver::onModal<QColorDialog>([&](QColorDialog* chooser) {
            offered = chooser->currentColor();
            colorTitle = chooser->windowTitle();
            chooser->reject();
        });
        control<QPushButton>(dialog, "Solid Color...")->click();
        QCOMPARE(offered, QColor("#102030")); // starts from the current colour
        QCOMPARE(colorTitle, QStringLiteral("Select Background Color"));
        QString imageTitle;
        QStringList filters;
        ModalDriver::onModal<QFileDialog>([&](QFileDialog* chooser) {
            imageTitle = chooser->windowTitle();
            filters = chooser->nameFilters();
            chooser->reject();
        });
        control<QPushButton>(dialog, "Choose Image...")->click();
        QCOMPARE(imageTitle, QStringLiteral("Select Background Image"));
        QCOMPARE(filters, QStringList { "Images (*.png *.jpg *.jpeg *.bmp *.gif)" });
        QCOMPARE(preview(dialog)->styleSheet(), "background-color: #102030;" + PreviewFrame);

        ModalDriver::onModal<QFileDialog>(
            [image](QFileDialog* chooser) { typeIntoFileDialog(chooser, image); });
        control<QPushButton>(dialog, "Choose Image...")->click();
        QVERIFY(preview(dialog)->styleSheet().startsWith("border-image: url(\"" + image + "\")"));
        apply(dialog);
        QCOMPARE(stored("chatBgImage"), image);
        QCOMPARE(stored("chatBgColor"), QString());

        ModalDriver::onModal<QColorDialog>([](QColorDialog* chooser) {
            chooser->setCurrentColor(QColor("#336699"));
            chooser->accept();
        });
        control<QPushButton>(dialog, "Solid Color...")->click();
        QCOMPARE(preview(dialog)->styleSheet(), "background-color: #336699;" + PreviewFrame);
        QVERIFY(closeWith(dialog, QDialogButtonBox::Ok));
        QCOMPARE(stored("chatBgImage"), QString());
        QCOMPARE(stored("chatBgColor"), QStringLiteral("#336699"));
        QVERIFY(window.main->prefs.chatBgImage.isEmpty());
        QCOMPARE(window.main->prefs.chatBgColor, QColor("#336699"));
    }

    void logDirectoryChooserFillsPath()
    {
        QTemporaryDir dir;
        Window window;
        PreferencesDialog* dialog = window.open();
        QString title;
        QFileDialog::FileMode mode = QFileDialog::AnyFile;
        ModalDriver::onModal<QFileDialog>([&](QFileDialog* chooser) {
            title = chooser->windowTitle();
            mode = chooser->fileMode();
            typeIntoFileDialog(chooser, dir.path());
        });
        control<QPushButton>(dialog, "...")->click();
        QCOMPARE(title, QStringLiteral("Select log directory"));
        QCOMPARE(mode, QFileDialog::Directory);
        QCOMPARE(QDir(logPathEdit(dialog)->text()), QDir(dir.path()));

        ModalDriver::onModal<QFileDialog>([](QFileDialog* chooser) { chooser->reject(); });
        control<QPushButton>(dialog, "...")->click();
        QCOMPARE(QDir(logPathEdit(dialog)->text()), QDir(dir.path()));
    }

    // ---- Font -------------------------------------------------------------

    // A font taken from the chooser goes into the window at once, but is only
    // applied and saved by the next Apply or OK, even from a later opening.
    void fontPickedThenCancelIsSavedByNextApply()
    {
        Window window;
        window.main->prefs.chatFont = QFont(QFontDatabase::families().value(0), 11);
        PreferencesDialog* first = window.open();
        QPushButton* fontButton = control<QPushButton>(first, "Chat font:");
        QCOMPARE(fontButton->text(), window.main->prefs.chatFont.family() + " 11");

        ModalDriver::onModal<QFontDialog>([](QFontDialog* chooser) {
            chooser->setCurrentFont(QFont(QFontDatabase::families().value(0), 30));
            chooser->reject();
        });
        fontButton->click();
        QCOMPARE(fontButton->text(), window.main->prefs.chatFont.family() + " 11");
        QVERIFY(!window.main->prefs.chatFontChosen);

        QFont offered;
        ModalDriver::onModal<QFontDialog>([&offered](QFontDialog* chooser) {
            chooser->setCurrentFont(QFont(QFontDatabase::families().value(0), 17));
            offered = chooser->currentFont();
            chooser->accept();
        });
        fontButton->click();
        QCOMPARE(offered.pointSize(), 17);
        QCOMPARE(fontButton->text(), offered.family() + " 17");
        QCOMPARE(window.main->prefs.chatFont.toString(), offered.toString());
        QVERIFY(window.main->inputLine->font().toString() != offered.toString());
        QVERIFY(closeWith(first, QDialogButtonBox::Cancel));
        QVERIFY(QSettings().allKeys().isEmpty());

        PreferencesDialog* second = window.open();
        QCOMPARE(control<QPushButton>(second, "Chat font:")->text(), offered.family() + " 17");
        apply(second);
        QCOMPARE(stored("chatFont"), offered.toString());
        // Applied now: every chat view shows it, and the input line its family
        // (the theme's sheet keeps the line's text size).
        QCOMPARE(window.main->inputLine->font().family(), offered.family());
        for (const NetworkView::TabInfo& tab : std::as_const(window.main->network()->tabs))
            QCOMPARE(tab.chatView->font().toString(), offered.toString());
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
        auto* combo = control<QComboBox>(dialog, "Theme:");
        QCOMPARE(items(combo), (QStringList { "Light", "Dark", "Glass" }));
        QCOMPARE(combo->currentText(), shown);
        QVERIFY(dialog->styleSheet().startsWith(ThemeManager::preferencesDialogStyleSheet(current)));

        combo->setCurrentIndex(choice);
        apply(dialog);
        QCOMPARE(stored("theme"), chosen);
        QCOMPARE(window.main->currentTheme, chosen);
        QCOMPARE(window.main->styleSheet(), ThemeManager::globalStyleSheet(chosen));
        QVERIFY(dialog->styleSheet().startsWith(ThemeManager::preferencesDialogStyleSheet(chosen)));
        // Only the dark pages need their text lightened.
        QCOMPARE(dialog->styleSheet().contains("color: #DDDDDD"), chosen == "dark");

        QCOMPARE(control<QComboBox>(window.open(), "Theme:")->currentData().toString(), chosen);
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
