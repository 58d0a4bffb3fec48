#pragma once

#include <QColor>
#include <QList>

class QWidget;

// See-through windows. They show the desktop behind them only where a
// compositor draws the screen; anywhere else their clear parts come out black.
namespace Translucency {

// Whether windows can be see-through here: X11 with a compositing manager
// (an owner of the _NET_WM_CM_S<screen> selection), the platforms that always
// composite (Wayland, Windows, macOS); never offscreen or on a bare frame
// buffer.
bool available();

// A "glass" window: see-through where the platform can show that, otherwise
// opaque on a frosted background of its own (added to its style sheet, so
// call this after setting that). Any other theme: opaque.
void applyGlass(QWidget* window, bool glass);

// The colours of that frosted background, top to bottom: light dialogs pick
// text colours that read on them too.
QList<QColor> frost();

} // namespace Translucency
