#pragma once

// Drives modal dialogs and popup menus from inside their own event loops.
// Arm a handler before the call that opens the window: from the next event
// loop on, and again every 20 ms for at most `timeoutMs`, it looks at
// QApplication::activeModalWidget() (or activePopupWidget()) and runs `act`
// on the first window that `match` accepts, so nested dialogs and a busy
// machine are both fine.

#include <QApplication>
#include <QDeadlineTimer>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
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
};
using HandlePtr = std::shared_ptr<Handle>;

struct Poller
{
    std::function<QWidget*()> current;
    std::function<bool(QWidget*)> match;
    std::function<void(QWidget*)> act;
    QDeadlineTimer deadline;
    HandlePtr handle;

    void operator()() const
    {
        if (handle->cancelled)
            return;
        QWidget* widget = current();
        if (!widget || !match(widget)) {
            if (!deadline.hasExpired())
                QTimer::singleShot(20, *this);
            return;
        }
        handle->handled = true;
        handle->title = widget->windowTitle();
        act(widget);
    }
};

inline HandlePtr armWindow(std::function<QWidget*()> current, std::function<bool(QWidget*)> match,
    std::function<void(QWidget*)> act, int timeoutMs = 10000)
{
    const Poller poller { std::move(current), std::move(match), std::move(act), QDeadlineTimer(timeoutMs),
        std::make_shared<Handle>() };
    QTimer::singleShot(0, poller);
    return poller.handle;
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

// The next popup menu: shows every entry to `seen`, then chooses the entry
// with text `entry` as a user does (so that exec() returns it), or closes the
// menu when there is none.
inline HandlePtr onPopupMenu(const QString& entry, std::function<void(QAction*)> seen)
{
    return armWindow([] { return QApplication::activePopupWidget(); },
        [](QWidget* w) { return qobject_cast<QMenu*>(w) != nullptr; },
        [entry, seen](QWidget* w) {
            auto* menu = qobject_cast<QMenu*>(w);
            QAction* wanted = nullptr;
            for (QAction* action : menu->actions()) {
                seen(action);
                if (!wanted && !entry.isEmpty() && !action->isSeparator() && action->text() == entry)
                    wanted = action;
            }
            if (wanted) {
                menu->setActiveAction(wanted);
                QTest::keyClick(menu, Qt::Key_Return);
            } else {
                menu->close();
            }
        });
}

} // namespace ModalDriver
