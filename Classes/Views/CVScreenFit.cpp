#include "Views/CVScreenFit.h"

#include <QGuiApplication>
#include <QMargins>
#include <QScreen>
#include <QWidget>

namespace CVScreenFit {

QRect fitted(const QRect &frame, const QRect &available)
{
    if (!available.isValid())
        return frame;
    QRect r(frame.topLeft(), frame.size().boundedTo(available.size()));
    r.moveCenter(frame.center());
    r.moveLeft(qBound(available.left(), r.left(), available.right() - r.width() + 1));
    r.moveTop(qBound(available.top(), r.top(), available.bottom() - r.height() + 1));
    return r;
}

void place(QWidget *window, const QSize &size, const QPoint &centre)
{
    QScreen *screen = QGuiApplication::screenAt(centre);
    if (!screen)
        screen = window->screen();
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    // The window manager's title bar and borders: known once the window has been shown, and
    // the same for the window's later sizes.
    const QRect client = window->geometry();
    const QRect outer = window->frameGeometry();
    const QMargins frame(client.left() - outer.left(), client.top() - outer.top(), outer.right() - client.right(),
        outer.bottom() - client.bottom());
    QRect wanted(QPoint(), size.expandedTo(window->minimumSize()).boundedTo(window->maximumSize()));
    wanted.moveCenter(centre);
    const QRect available = screen ? screen->availableGeometry() : QRect();
    const QRect inside = fitted(wanted.marginsAdded(frame), available).marginsRemoved(frame);
    if (inside.size() != window->size()) {
        // A screen smaller than the minimum wins over the minimum.
        window->setMinimumSize(window->minimumSize().boundedTo(inside.size()));
        window->resize(inside.size());
    }
    // move() places the frame's corner, as the window manager sees it.
    window->move(inside.topLeft() - QPoint(frame.left(), frame.top()));
}

void keepOnScreen(QWidget *window)
{
    place(window, window->size(), window->geometry().center());
}

} // namespace CVScreenFit
