#pragma once

#include <QRect>

class QWidget;

// Where a window goes when it changes its own size or comes back from a saved frame: wholly
// inside its screen's available geometry (the desktop's panels left out), title bar and
// borders included, keeping its centre where it can and shrinking where it must.
namespace CVScreenFit {

// `frame` moved, and shrunk where it is larger, to lie inside `available`; its centre kept
// when that already allows it.
QRect fitted(const QRect &frame, const QRect &available);

// Gives `window` the client size `size` centred on `centre` (a point on the desktop), fitted
// to the available geometry of the screen under `centre` (the window's own when none is).
// Never smaller than the window's minimum size, unless the screen itself is smaller.
void place(QWidget *window, const QSize &size, const QPoint &centre);

// The same for the window's present size and centre.
void keepOnScreen(QWidget *window);

} // namespace CVScreenFit
