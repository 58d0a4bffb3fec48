#pragma once

// Drives modal dialogs and popup menus from inside their own event loops.
// Arm a handler before the call that opens the window: a zero-delay single
// shot looks at QApplication::activeModalWidget() (or activePopupWidget())
// and, once a window that `match` accepts is up, runs `act` on it. Until then
// it looks again every 20 ms, for at most `timeoutMs`, so nested dialogs and a
// busy machine are both fine.

#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>

namespace ModalDriver {

struct Handle
{
    bool handled = false;
    bool cancelled = false; // set by the test to stop waiting
    QString title;
    QString text;
};
using HandlePtr = std::shared_ptr<Handle>;

class Poller : public std::enable_shared_from_this<Poller>
{
public:
    Poller(std::function<QWidget*()> current, std::function<bool(QWidget*)> match,
        std::function<void(QWidget*)> act, int timeoutMs)
        : m_current(std::move(current))
        , m_match(std::move(match))
        , m_act(std::move(act))
        , m_timeoutMs(timeoutMs)
        , m_handle(std::make_shared<Handle>())
    {
        m_clock.start();
    }

    HandlePtr handle() const { return m_handle; }

    void run()
    {
        if (m_handle->cancelled)
            return;
        QWidget* widget = m_current();
        if (widget && m_match(widget)) {
            m_handle->handled = true;
            m_handle->title = widget->windowTitle();
            if (auto* box = qobject_cast<QMessageBox*>(widget))
                m_handle->text = box->text();
            m_act(widget);
            return;
        }
        if (m_clock.elapsed() > m_timeoutMs)
            return;
        QTimer::singleShot(20, [self = shared_from_this()] { self->run(); });
    }

private:
    std::function<QWidget*()> m_current;
    std::function<bool(QWidget*)> m_match;
    std::function<void(QWidget*)> m_act;
    int m_timeoutMs;
    QElapsedTimer m_clock;
    HandlePtr m_handle;
};

inline HandlePtr armWindow(std::function<QWidget*()> current, std::function<bool(QWidget*)> match,
    std::function<void(QWidget*)> act, int timeoutMs = 10000)
{
    auto poller = std::make_shared<Poller>(std::move(current), std::move(match), std::move(act), timeoutMs);
    QTimer::singleShot(0, [poller] { poller->run(); });
    return poller->handle();
}

// The next modal widget of type T that `match` accepts.
template <typename T> HandlePtr onModal(std::function<void(T*)> act, std::function<bool(T*)> match = nullptr)
{
    return armWindow([] { return QApplication::activeModalWidget(); },
        [match](QWidget* w) {
            T* t = qobject_cast<T*>(w);
            return t && (!match || match(t));
        },
        [act](QWidget* w) { act(qobject_cast<T*>(w)); });
}

// The next message box titled `title`: clicks its `button`.
inline HandlePtr onMessageBox(const QString& title, QMessageBox::StandardButton button)
{
    return onModal<QMessageBox>(
        [button](QMessageBox* box) {
            if (QAbstractButton* b = box->button(button))
                b->click();
            else
                box->reject();
        },
        [title](QMessageBox* box) { return box->windowTitle() == title; });
}

// The next popup menu: activates the entry with text `entry` (or closes the
// menu when there is none) and records every entry's text in `texts`.
inline HandlePtr onMenu(const QString& entry, std::shared_ptr<QStringList> texts)
{
    return armWindow([] { return QApplication::activePopupWidget(); },
        [](QWidget* w) { return qobject_cast<QMenu*>(w) != nullptr; },
        [entry, texts](QWidget* w) {
            auto* menu = qobject_cast<QMenu*>(w);
            QAction* wanted = nullptr;
            for (QAction* action : menu->actions()) {
                if (action->isSeparator())
                    continue;
                texts->append(action->text());
                if (action->text() == entry)
                    wanted = action;
            }
            if (!wanted) {
                menu->close();
                return;
            }
            menu->setActiveAction(wanted);
            QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
            QApplication::sendEvent(menu, &press);
        });
}

} // namespace ModalDriver
