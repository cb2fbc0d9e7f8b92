// The window with a large library: start to main view, a click in each browser column, a
// search typed a key at a time, scrolling the whole track list, and resident memory.
// Runs on whatever Qt platform is set (offscreen without a display).
#include "Browsing/CVBrowserColumnModel.h"
#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVTrackListModel.h"
#include "CVApplicationDelegate.h"
#include "CVWindowDelegate.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHeaderView>
#include <QMutex>
#include <QScrollBar>
#include <QTableView>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <malloc.h>
#include <time.h>

using namespace Qt::StringLiterals;

namespace {

double residentMB()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024.0;
    return 0;
}

template<typename F>
double millis(F &&f)
{
    QElapsedTimer t;
    t.start();
    f();
    return double(t.nsecsElapsed()) / 1e6;
}

// This thread's processor time: on a shared machine it shows the work apart from the waits.
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
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_window LIBRARY_FILE\n");
        return 2;
    }
    // A home of its own: settings, history and the instance lock stay out of the user's.
    QTemporaryDir home;
    for (const char *var : { "HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR" })
        qputenv(var, QFile::encodeName(home.path()));
    CVApplicationDelegate::Options options;
    options.libraryFile = QString::fromLocal8Bit(argv[1]);
    options.answerDialogs = true;
    options.mainViewDelayMs = 200; // as the program waits before the main view

    CVApplicationDelegate delegate(options);
    delegate.setQuitHandler([] {});
    QElapsedTimer start;
    start.start();
    double startMs = 0;
    delegate.awakeFromNib();
    // The load's steps by their status texts, timed where they are set (on the load thread).
    QList<std::pair<QString, double>> steps;
    QMutex stepsLock;
    QObject::connect(
        delegate.presenter(), &CVSheetPresenter::statusTextChanged, &app,
        [&](const QString &text) {
            const QMutexLocker lock(&stepsLock);
            if (steps.isEmpty() || steps.last().first != text)
                steps.append({ text, double(start.nsecsElapsed()) / 1e6 });
        },
        Qt::DirectConnection);
    QObject::connect(delegate.windowDelegate(), &CVWindowDelegate::mainViewShown, &app, [&] {
        startMs = double(start.nsecsElapsed()) / 1e6;
        app.quit();
    });
    delegate.applicationDidFinishLaunching();
    app.exec();
    while (delegate.isLoadingCorvana())
        QApplication::processEvents();
    CVWindowDelegate *window = delegate.windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    CVMainWindow *w = window->corvanaWindow();
    w->resize(1280, 800);
    QApplication::processEvents();
    const double afterLoadMB = residentMB();
    const std::size_t tracks = delegate.libraryManager()->allTracks().size();

    // A click in each column, on rows never clicked before (nothing in the memo yet).
    browser->setMediaFilter(u"All"_s);
    double worstClick = 0, worstClickCpu = 0;
    for (int column = 0; column < 3; ++column) {
        for (int row : { 3, 5, 7 }) {
            const int rows = browser->columnModel(column)->rowCount();
            if (rows < 2)
                continue;
            const double cpuBefore = threadCpuMs();
            const double ms = millis([&] {
                browser->selectRow(column, std::min(row, rows - 1));
                w->trackView->viewport()->repaint();
            });
            worstClick = std::max(worstClick, ms);
            worstClickCpu = std::max(worstClickCpu, threadCpuMs() - cpuBefore);
        }
        browser->selectRow(column, 0);
    }
    browser->selectRow(0, 0);

    // A search typed a key at a time: each key refreshes every pane.
    double worstKey = 0, firstKey = 0;
    const QString typed = u"love night"_s;
    QStringList keys, keysCpu;
    double worstKeyCpu = 0;
    for (qsizetype n = 1; n <= typed.size(); ++n) {
        const double cpuBefore = threadCpuMs();
        const double ms = millis([&] {
            window->filterSourcesWithSearch(typed.left(n));
            w->trackView->viewport()->repaint();
        });
        const double cpu = threadCpuMs() - cpuBefore;
        worstKeyCpu = std::max(worstKeyCpu, cpu);
        keysCpu.append(QString::number(cpu, 'f', 1));
        if (n == 1)
            firstKey = ms;
        worstKey = std::max(worstKey, ms);
        keys.append(QString::number(ms, 'f', 1));
    }
    const int found = browser->trackModel()->rowCount();
    window->filterSourcesWithSearch(u""_s);

    // Scrolling the whole list a page at a time, every shown cell read and painted.
    CVTrackListModel *model = browser->trackModel();
    const int rows = model->rowCount();
    const int page
        = std::max(1, w->trackView->viewport()->height() / w->trackView->verticalHeader()->defaultSectionSize());
    w->trackView->scrollToTop();
    w->trackView->viewport()->repaint();
    const struct mallinfo2 before = mallinfo2();
    double scrollMs = millis([&] {
        for (int top = 0; top < rows; top += page) {
            w->trackView->verticalScrollBar()->setValue(top);
            w->trackView->viewport()->repaint();
        }
    });
    const struct mallinfo2 after = mallinfo2();
    const double heapGrowthKB = (double(after.uordblks) - double(before.uordblks)) / 1024.0;

    // Each step's time runs to the next one; the last to the main view.
    QStringList stepTexts;
    {
        const QMutexLocker lock(&stepsLock);
        for (qsizetype i = 0; i < steps.size(); ++i) {
            const double end = i + 1 < steps.size() ? steps[i + 1].second : startMs;
            stepTexts.append(u"\"%1\": %2"_s.arg(steps[i].first).arg(end - steps[i].second, 0, 'f', 0));
        }
    }
    std::printf("{\"steps\": {%s}, \"keystrokesMs\": [%s], \"keystrokesCpuMs\": [%s], \"worstKeystrokeCpuMs\": %.1f, "
                "\"worstColumnClickCpuMs\": %.1f}\n",
        qPrintable(stepTexts.join(u", "_s)), qPrintable(keys.join(u", "_s)), qPrintable(keysCpu.join(u", "_s)),
        worstKeyCpu, worstClickCpu);
    std::printf("{\"tracks\": %zu, \"startToMainViewMs\": %.0f, \"worstColumnClickMs\": %.1f, "
                "\"firstKeystrokeMs\": %.1f, \"worstKeystrokeMs\": %.1f, \"searchFound\": %d, "
                "\"scrollWholeListMs\": %.0f, \"scrollPages\": %d, \"scrollHeapGrowthKB\": %.1f, "
                "\"residentAfterLoadMB\": %.0f, \"residentMB\": %.0f}\n",
        tracks, startMs, worstClick, firstKey, worstKey, found, scrollMs, (rows + page - 1) / page, heapGrowthKB,
        afterLoadMB, residentMB());
    delegate.terminate();
    return 0;
}
