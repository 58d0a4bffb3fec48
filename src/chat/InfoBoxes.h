#pragma once

class QWidget;

// The program's two white information boxes, modal over parent.
namespace InfoBoxes {

void showAboutBox(QWidget* parent);
// The basic IRC commands and what they do.
void showHelpBox(QWidget* parent);

} // namespace InfoBoxes
