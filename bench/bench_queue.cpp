// The spanning queue with a large library: the genre column's "All" row dropped on the queue's
// zone (the drag data the column makes, a drop event as the desktop delivers it), until the queue
// holds every track, the summary line is written, the saved queue is on disk and the zone is
// repainted. Then the same with the queue emptied first (the memo warm), and a removal.
#include "Browsing/CVBrowserColumnModel.h"
#include "Browsing/CVBrowserDelegate.h"
#include "CVApplicationDelegate.h"
#include "CVWindowDelegate.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Views/CVSpanQueueDropZone.h"

#include <QApplication>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QFile>
#include <QMimeData>
#include <QTemporaryDir>

#include <cstdio>
#include <ctime>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// The main thread's processor time: what the work costs, whatever else the machine runs.
double threadCpuMs()
{
    timespec ts {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

struct Timing {
    double wallMs = 0;
    double cpuMs = 0;
};

Timing dropOnZone(CVSpanQueueDropZone *zone, const QMimeData *mime, Qt::KeyboardModifiers modifiers)
{
    QElapsedTimer clock;
    const double cpu = threadCpuMs();
    clock.start();
    const QPoint at(20, 10);
    QDragEnterEvent enter(at, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, modifiers);
    QApplication::sendEvent(zone, &enter);
    QDropEvent dropped(QPointF(at), Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, modifiers);
    QApplication::sendEvent(zone, &dropped);
    zone->repaint();
    return { double(clock.nsecsElapsed()) / 1e6, threadCpuMs() - cpu };
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_queue LIBRARY_FILE\n");
        return 2;
    }
    QTemporaryDir home;
    for (const char *var : { "HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR" })
        qputenv(var, QFile::encodeName(home.path()));
    CVApplicationDelegate::Options options;
    options.libraryFile = QString::fromLocal8Bit(argv[1]);
    options.answerDialogs = true;
    options.mainViewDelayMs = 0;
    CVApplicationDelegate delegate(options);
    delegate.setQuitHandler([] {});
    delegate.awakeFromNib();
    QObject::connect(&delegate, &CVApplicationDelegate::loadFinished, &app, &QApplication::quit);
    delegate.applicationDidFinishLaunching();
    app.exec();
    CVWindowDelegate *window = delegate.windowDelegate();
    CVMainWindow *w = window->corvanaWindow();
    w->resize(1280, 800);
    w->show();
    QApplication::processEvents();
    CVBrowserDelegate *browser = window->browserDelegate();
    browser->setMediaFilter(u"All"_s);
    QApplication::processEvents();

    CVBrowserColumnModel *genres = browser->columnModel(CVBrowserDelegate::GenreColumn);
    const std::unique_ptr<QMimeData> mime(genres->mimeData({ genres->index(0, 0) }));
    CVSpanQueueDropZone *zone = w->spanQueueDropZone;
    const Timing first = dropOnZone(zone, mime.get(), {});
    const qsizetype queued = window->spanQueue().size();
    const QString summary = zone->summary();
    const Timing again = dropOnZone(zone, mime.get(), {});
    const Timing removal = dropOnZone(zone, mime.get(), Qt::AltModifier);
    const Timing refill = dropOnZone(zone, mime.get(), {});
    std::printf("{\"tracks\": %zu, \"queued\": %lld, \"summary\": \"%s\", \"dropAllMs\": %.1f, \"dropAllCpuMs\": %.1f, "
                "\"dropAllAgainMs\": %.1f, \"removeAllMs\": %.1f, \"dropAllAfterRemovalMs\": %.1f, "
                "\"dropAllAfterRemovalCpuMs\": %.1f}\n",
        delegate.libraryManager()->allTracks().size(), qint64(queued), qUtf8Printable(summary), first.wallMs,
        first.cpuMs, again.wallMs, removal.wallMs, refill.wallMs, refill.cpuMs);
    delegate.terminate();
    return 0;
}
