// A span run through the window, timed from the press of "Span…" (the checks, the confirmation
// answered at once) to the results view: the whole queue of a generated library to DEST, with
// the spanning view, its progress and the task bar entry as a user sees them. Prints the time,
// the time per track, the main thread's processor time over the run (the window's own share) and
// the whole process's processor time per track (less at the mercy of a busy machine than the time).
// The home (settings, history, Trash) is the caller's: bench/run-overhead-benchmark sets it.
//
//   bench_run LIBRARY_FILE DEST
#include "Browsing/CVBrowserDelegate.h"
#include "CVApplicationDelegate.h"
#include "CVWindowDelegate.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <ctime>
#include <sys/resource.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The whole process: the run's worker, the window, and every other thread.
double processCpuMs()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval &t) { return double(t.tv_sec) * 1e3 + double(t.tv_usec) / 1e3; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

double threadCpuMs()
{
    timespec ts {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_run LIBRARY_FILE DEST\n");
        return 2;
    }
    CVApplicationDelegate::Options options;
    options.libraryFile = QString::fromLocal8Bit(argv[1]);
    options.answerDialogs = true;
    options.mainViewDelayMs = 0;
    CVApplicationDelegate delegate(options);
    delegate.setQuitHandler([] {});
    delegate.awakeFromNib();
    if (::geteuid() == 0)
        delegate.spanner()->setAllowRoot(true);
    QObject::connect(&delegate, &CVApplicationDelegate::loadFinished, &app, &QApplication::quit);
    delegate.applicationDidFinishLaunching();
    app.exec();
    // What the window does once after its load (the search's texts folded, the lists warmed, the
    // helper started) is done before a user could press "Span…": it is not the run's.
    {
        QEventLoop settle;
        QTimer::singleShot(2000, &settle, &QEventLoop::quit);
        settle.exec();
    }
    CVWindowDelegate *window = delegate.windowDelegate();
    window->corvanaWindow()->resize(1280, 800);
    window->browserDelegate()->setMediaFilter(u"All"_s);
    window->performDrop(CVPredicate::fromText(u""_s));
    window->setSpanLocation(QString::fromLocal8Bit(argv[2]), false);
    QApplication::processEvents();
    const int tracks = int(window->spanQueue().size());

    QElapsedTimer clock;
    clock.start();
    const double cpu = threadCpuMs();
    const double processCpu = processCpuMs();
    window->spanLibrary();
    if (!delegate.presenter()->openSheet().title.startsWith(u"Are you sure you want to span"_s)) {
        std::fprintf(stderr, "no confirmation: %s\n", qUtf8Printable(delegate.presenter()->openSheet().title));
        return 1;
    }
    delegate.presenter()->answerSheet(CVPresenter::DefaultReturn);
    // The main thread sleeps in its event loop as the program's would, and looks every 50 ms.
    QEventLoop loop;
    QTimer look;
    look.setInterval(50);
    QObject::connect(&look, &QTimer::timeout, &loop, [&] {
        if (window->isResultsViewOnScreen() && !delegate.isRunThreadActive())
            loop.quit();
    });
    look.start();
    loop.exec();
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    const double mainCpuMs = threadCpuMs() - cpu;
    const double processCpuMsUsed = processCpuMs() - processCpu;
    const CVRunResults &results = delegate.spanner()->lastResults();
    std::printf("{\"tracks\": %d, \"successes\": %d, \"seconds\": %.2f, \"msPerTrack\": %.3f, "
                "\"mainThreadCpuMs\": %.0f, \"cpuMsPerTrack\": %.3f}\n",
        tracks, results.successes, seconds, seconds * 1000 / qMax(1, tracks), mainCpuMs,
        processCpuMsUsed / qMax(1, tracks));
    delegate.terminate();
    return results.successes == tracks ? 0 : 1;
}
