#include "ChatView.h"
#include "MainWindow.h"
#include "ModalDriver.h"
#include "NetworkView.h"
#include "PreferencesDialog.h"
#include "TestMain.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFontDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QTemporaryDir>

namespace {

// A real chat window whose preferences the dialog edits. Unless told to keep
// it, the store is emptied once the window has loaded it, so a test sees only
// what the dialog writes.
struct Window
{
    std::unique_ptr<MainWindow> main { new MainWindow(nullptr, MainWindow::Startup::Quiet) };
    explicit Window(bool keepStore = false) { if (!keepStore) QSettings().clear(); }
    PreferencesDialog* open()
    {
        auto* dialog = new PreferencesDialog(main.get());
        dialog->show();
        return dialog;
    }
};

// The button or check box showing `text`, the line edit with `text` as its
// placeholder, or else the control labelled `text`.
template <typename T = QWidget> T* control(QWidget* dialog, const QString& text)
{
    for (QAbstractButton* button : dialog->findChildren<QAbstractButton*>()) {
        if (button->text() == text)
            return qobject_cast<T*>(button);
    }
    for (QLineEdit* edit : dialog->findChildren<QLineEdit*>()) {
        if (edit->placeholderText() == text)
            return qobject_cast<T*>(edit);
    }
    for (QLabel* label : dialog->findChildren<QLabel*>()) {
        if (label->text() == text)
            return qobject_cast<T*>(label->buddy());
    }
    return nullptr;
}

// Sets the control as a user would; a typed path gets stray spaces around it.
void setControl(QWidget* control, const QString& value)
{
    if (auto* spin = qobject_cast<QSpinBox*>(control))
        spin->setValue(value.toInt());
    else if (auto* check = qobject_cast<QCheckBox*>(control))
        check->setChecked(value == QLatin1String("true"));
    else if (auto* combo = qobject_cast<QComboBox*>(control))
        combo->setCurrentIndex(combo->findData(value) >= 0 ? combo->findData(value) : combo->findText(value));
    else if (auto* edit = qobject_cast<QLineEdit*>(control))
        edit->setText("  " + value + "  ");
}

void click(QWidget* dialog, QDialogButtonBox::StandardButton which) { dialog->findChild<QDialogButtonBox*>()->button(which)->click(); }

// Clicks OK or Cancel; true once the dialog has deleted itself.
bool closeWith(PreferencesDialog* dialog, QDialogButtonBox::StandardButton which)
{
    QPointer<PreferencesDialog> guard = dialog;
    click(dialog, which);
    return QTest::qWaitFor([&guard] { return guard.isNull(); }, 10000);
}

QString stored(const QString& key) { return QSettings().value(key).toString(); }

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

// Opens the chooser behind the button showing `button`; `act` answers it.
template <typename T> void choose(QWidget* dialog, const QString& button, std::function<void(T*)> act)
{
    ModalDriver::onModal<T>(std::move(act));
    control<QPushButton>(dialog, button)->click();
}

// Types a path into the widget-based file dialog's name field and confirms.
void typeIntoFileDialog(QFileDialog* chooser, const QString& path)
{
    if (auto* nameEdit = chooser->findChild<QLineEdit*>(QStringLiteral("fileNameEdit")))
        nameEdit->setText(path);
    static_cast<QDialog*>(chooser)->accept(); // QFileDialog::accept is protected
    if (chooser->isVisible())
        chooser->reject();
}

} // namespace

class TestPrefs : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    // Every stored key: what a first start writes, what a stored value comes
    // back as, and what an edited control saves (no control: chosen elsewhere).
    void storeRoundTrip()
    {
        const QString font = QFont(QFontDatabase::families().value(0), 15).toString();
        struct Key
        {
            QString key, control, firstStart, stored, edited;
        };
        const QList<Key> keys { { "theme", "Theme:", "light", "glass", "dark" },
            { "chatFont", "", QFont().toString(), font, QFont().toString() },
            { "timestampFormat", "Timestamp:", "[HH:mm:ss]", "[hh:mm:ss AP]", "hh:mm" },
            { "emojiSize", "Emoji size:", "20", "33", "40" },
            { "scrollbackLines", "Scrollback lines:", "0", "5000", "2000" },
            { "logEnabled", "Enable logging", "false", "true", "true" },
            { "logPath", "Log directory path...", "", "/var/log/quenvar", "/tmp/irc logs" },
            { "backlogLines", "Backlog lines:", "50", "0", "200" },
            { "chatBgImage", "", "", "/pics/a b.png", "" }, { "chatBgColor", "", "", "#123456", "" },
            { "reopenNetworks", "Reopen the networks open at exit", "true", "false", "false" },
            { "autoReconnect", "Auto-reconnect on disconnect", "true", "false", "false" },
            { "reconnectDelay", "Reconnect delay:", "10", "250", "30" },
            { "reconnectAttempts", "Max attempts:", "0", "7", "5" },
            { "pingInterval", "PING interval:", "60", "500", "120" },
            { "pingTimeout", "PONG timeout:", "45", "100", "20" },
            { "acceptInvalidSsl", "Accept invalid SSL certificates", "false", "true", "true" } };
        const auto expected = [&keys](QString Key::*column) {
            QStringList pairs;
            for (const Key& k : keys)
                pairs << k.key + '=' + k.*column;
            pairs.sort();
            return pairs;
        };

        // Cancel writes nothing; OK on a first start writes every key.
        {
            Window window;
            PreferencesDialog* dialog = window.open();
            control<QSpinBox>(dialog, "Emoji size:")->setValue(40);
            QVERIFY(closeWith(dialog, QDialogButtonBox::Cancel));
            QVERIFY(QSettings().allKeys().isEmpty());
            dialog = window.open();
            QVERIFY(closeWith(dialog, QDialogButtonBox::Ok));
            QCOMPARE(storedPairs(), expected(&Key::firstStart));
        }
        // Stored values are loaded by the window, shown by the dialog and
        // stored again unchanged by Apply, which keeps the dialog open.
        {
            QSettings settings;
            for (const Key& k : keys)
                settings.setValue(k.key, k.stored);
            settings.sync();
            Window window(true);
            PreferencesDialog* dialog = window.open();
            QSettings().clear();
            click(dialog, QDialogButtonBox::Apply);
            QCOMPARE(storedPairs(), expected(&Key::stored));
            QVERIFY(dialog->isVisible());
        }
        // Edited controls are saved, and the window takes the theme.
        {
            QSettings().clear();
            Window window;
            PreferencesDialog* dialog = window.open();
            for (const Key& k : keys) {
                if (!k.control.isEmpty()) {
                    QVERIFY2(control(dialog, k.control), qPrintable(k.control));
                    setControl(control(dialog, k.control), k.edited);
                }
            }
            QVERIFY(closeWith(dialog, QDialogButtonBox::Ok));
            QCOMPARE(storedPairs(), expected(&Key::edited));
            QCOMPARE(window.main->currentTheme, QStringLiteral("dark"));
        }
    }

    // Values the controls cannot show (an old or hand-edited store) open as
    // the nearest choice and are saved as that.
    void unknownValuesAreRepairedOnSave()
    {
        Window window;
        window.main->currentTheme = QStringLiteral("neon");
        window.main->prefs.timestampFormat = QStringLiteral("yyyy %1 <b>");
        window.main->prefs.emojiSize = 99;
        click(window.open(), QDialogButtonBox::Apply);
        QCOMPARE(stored("theme"), QStringLiteral("light"));
        QCOMPARE(stored("timestampFormat"), QStringLiteral("[HH:mm:ss]"));
        QCOMPARE(stored("emojiSize"), QStringLiteral("48"));
    }

    // An image drops the colour, a colour the image (a cancelled chooser
    // changes nothing), Reset both; the folder chooser fills the log path.
    void choosers()
    {
        QTemporaryDir dir;
        const QString image = dir.filePath("bg.png");
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QVERIFY(picture.save(image));
        Window window;
        window.main->prefs.chatBgColor = QColor("#102030");
        PreferencesDialog* dialog = window.open();
        const auto saved = [dialog] {
            click(dialog, QDialogButtonBox::Apply);
            return QStringList { stored("chatBgImage"), stored("chatBgColor") };
        };
        choose<QFileDialog>(
            dialog, "Choose Image...", [image](QFileDialog* c) { typeIntoFileDialog(c, image); });
        choose<QColorDialog>(dialog, "Solid Color...", [](QColorDialog* chooser) { chooser->reject(); });
        choose<QFileDialog>(
            dialog, "...", [&dir](QFileDialog* chooser) { typeIntoFileDialog(chooser, dir.path()); });
        QCOMPARE(saved(), (QStringList { image, "" }));
        QCOMPARE(QDir(stored("logPath")), QDir(dir.path()));
        choose<QColorDialog>(dialog, "Solid Color...", [](QColorDialog* chooser) {
            chooser->setCurrentColor(QColor("#336699"));
            chooser->accept();
        });
        QCOMPARE(saved(), (QStringList { "", "#336699" }));
        QCOMPARE(window.main->prefs.chatBgColor, QColor("#336699"));
        control<QPushButton>(dialog, "Reset")->click();
        QCOMPARE(saved(), (QStringList { "", "" }));
    }

    // A font taken from the chooser is only applied and saved by the next
    // Apply or OK, even from a later opening.
    void fontPickedThenCancelIsSavedByNextApply()
    {
        Window window;
        QFont offered;
        PreferencesDialog* first = window.open();
        choose<QFontDialog>(first, "Chat font:", [&offered](QFontDialog* chooser) {
            chooser->setCurrentFont(QFont(QFontDatabase::families().value(0), 17));
            offered = chooser->currentFont();
            chooser->accept();
        });
        QVERIFY(window.main->inputLine->font().toString() != offered.toString());
        QVERIFY(closeWith(first, QDialogButtonBox::Cancel));
        QVERIFY(QSettings().allKeys().isEmpty());
        click(window.open(), QDialogButtonBox::Apply);
        QCOMPARE(stored("chatFont"), offered.toString());
        // Applied now: every chat view shows it, and the input line its family.
        QCOMPARE(window.main->inputLine->font().family(), offered.family());
        for (const NetworkView::TabInfo& tab : std::as_const(window.main->network()->tabs))
            QCOMPARE(tab.chatView->font().toString(), offered.toString());
    }
};

QUENVAR_TEST_MAIN(TestPrefs)
#include "tst_prefs.moc"
