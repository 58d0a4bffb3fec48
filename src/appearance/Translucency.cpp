#include "Translucency.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QWidget>

#if QT_CONFIG(xcb)
#include <QtGui/qguiapplication_platform.h>
#include <xcb/xcb.h>
#endif

#include <cstdlib>

namespace {

#if QT_CONFIG(xcb)
// The screen number of $DISPLAY (":0.1" is screen 1).
int displayScreen()
{
    const QByteArray display = qgetenv("DISPLAY");
    const int dot = display.lastIndexOf('.');
    const int colon = display.lastIndexOf(':');
    return dot > colon ? std::atoi(display.constData() + dot + 1) : 0;
}

bool x11Compositing()
{
    const auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return false;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(displayScreen());
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 1, quint16(name.size()), name.constData()), nullptr);
    if (!atom)
        return false;
    bool owned = false;
    if (atom->atom != XCB_ATOM_NONE) {
        xcb_get_selection_owner_reply_t* owner = xcb_get_selection_owner_reply(
            connection, xcb_get_selection_owner(connection, atom->atom), nullptr);
        owned = owner && owner->owner != XCB_NONE;
        std::free(owner);
    }
    std::free(atom);
    return owned;
}
#endif

} // namespace

namespace Translucency {

bool available()
{
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("xcb")) {
#if QT_CONFIG(xcb)
        return x11Compositing();
#else
        return false;
#endif
    }
    return platform.startsWith(QLatin1String("wayland")) || platform == QLatin1String("windows")
        || platform == QLatin1String("cocoa");
}

void applyGlass(QWidget* window, bool glass)
{
    const bool seeThrough = glass && available();
    window->setAttribute(Qt::WA_TranslucentBackground, seeThrough);
    window->setAutoFillBackground(!seeThrough);
    if (glass && !seeThrough) {
        // Frosted glass: white over a cool grey, fully opaque.
        const QList<QColor> colours = frost();
        window->setStyleSheet(window->styleSheet()
            + QStringLiteral("\nQDialog { background: qlineargradient(x1: 0, y1: 0, x2: 0, y2: 1, "
                             "stop: 0 %1, stop: 1 %2); }\n")
                  .arg(colours.constFirst().name(), colours.constLast().name()));
    }
}

QList<QColor> frost()
{
    return { QColor(0xFD, 0xFD, 0xFE), QColor(0xE8, 0xEC, 0xF2) };
}

} // namespace Translucency
