#include "MainWindow/CVRunProgress.h"

#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "Platform/CVLauncherEntry.h"
#include "Views/CVSpanningView.h"

#include <QProgressBar>
#include <QThread>

#include <cmath>

using namespace Qt::StringLiterals;

CVRunProgress::CVRunProgress(CVMediaSpanner *spanner, CVSpanningView *view, CVLauncherEntry *launcher, QObject *parent)
    : QObject(parent)
    , m_spanner(spanner)
    , m_view(view)
    , m_launcher(launcher)
{
    m_timer.setInterval(IntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &CVRunProgress::flush);
    // Direct: these run on the worker, which only takes the lock for a moment.
    const auto direct = Qt::DirectConnection;
    m_connections << connect(
        spanner, &CVMediaSpanner::headerChanged, this,
        [this](const QString &text) { changed([&](State &s) { s.header = text; }); }, direct);
    m_connections << connect(
        spanner, &CVMediaSpanner::taskLineChanged, this,
        [this](const QString &text, int alignment) {
            changed([&](State &s) {
                s.task = text;
                s.alignment = alignment;
            });
        },
        direct);
    m_connections << connect(
        spanner, &CVMediaSpanner::progressChanged, this,
        [this](double value, double maximum, bool indeterminate) {
            changed([&](State &s) {
                s.value = value;
                s.maximum = maximum;
                s.indeterminate = indeterminate;
            });
        },
        direct);
    m_connections << connect(
        spanner, &CVMediaSpanner::waitingForPlayer, this,
        [this](bool waiting) { changed([&](State &s) { s.waiting = waiting; }); }, direct);
    m_connections << connect(
        spanner, &CVMediaSpanner::fileCopied, this,
        [this](qint64 bytes) { changed([&](State &s) { s.bytes += bytes; }); }, direct);
    m_connections << connect(
        spanner, &CVMediaSpanner::pauseTitleChanged, this,
        [this](const QString &title) { changed([&](State &s) { s.pauseTitle = title; }); }, direct);
    m_connections << connect(
        spanner, &CVMediaSpanner::skipTitleChanged, this,
        [this](const QString &title) { changed([&](State &s) { s.skipTitle = title; }); }, direct);
}

CVRunProgress::~CVRunProgress()
{
    // A worker may still emit while this goes: no slot may reach a dead object.
    for (const QMetaObject::Connection &c : std::as_const(m_connections))
        disconnect(c);
}

void CVRunProgress::changed(const std::function<void(State &)> &edit)
{
    {
        QMutexLocker lock(&m_mutex);
        edit(m_state);
        ++m_state.generation;
    }
    // What the user does (pause, resume) shows at once.
    if (QThread::currentThread() == thread() && m_timer.isActive())
        flush();
}

void CVRunProgress::begin(int tracks, double bytes)
{
    {
        QMutexLocker lock(&m_mutex);
        const QString pause = m_state.pauseTitle;
        const QString skip = m_state.skipTitle;
        const QString header = m_state.header;
        const QString task = m_state.task;
        const int alignment = m_state.alignment;
        m_state = State();
        // What the run said before its view came (its header, its first task line) stays.
        m_state.pauseTitle = pause;
        m_state.skipTitle = skip;
        m_state.header = header;
        m_state.task = task;
        m_state.alignment = alignment;
    }
    m_tracks = tracks;
    m_bytesTotal = bytes;
    m_phaseMaximum = -1;
    m_pausedMs = 0;
    m_pauseClock.invalidate();
    m_phaseClock.start();
    m_shown = ~quint64(0);
    m_view->setStatistics(QString());
    m_view->setControlsEnabled(true);
    m_timer.start();
    flush();
}

void CVRunProgress::end()
{
    flush();
    m_timer.stop();
    m_view->setControlsEnabled(false);
    if (m_launcher)
        m_launcher->hideProgress();
}

void CVRunProgress::flush()
{
    State s;
    {
        QMutexLocker lock(&m_mutex);
        s = m_state;
    }
    const bool paused = m_spanner->pauseSpan();
    if (paused && !m_pauseClock.isValid())
        m_pauseClock.start();
    else if (!paused && m_pauseClock.isValid()) {
        m_pausedMs += m_pauseClock.elapsed();
        m_pauseClock.invalidate();
    }
    const double phase = s.indeterminate ? -2 : s.maximum;
    if (phase != m_phaseMaximum) {
        m_phaseMaximum = phase;
        m_phaseClock.restart();
        m_pausedMs = 0;
        if (m_pauseClock.isValid())
            m_pauseClock.restart();
    }
    const double activeSeconds
        = double(m_phaseClock.elapsed() - m_pausedMs - (m_pauseClock.isValid() ? m_pauseClock.elapsed() : 0)) / 1000.0;

    if (s.generation != m_shown) {
        m_shown = s.generation;
        m_view->setHeader(s.header);
        m_view->setTaskLine(s.task, Qt::Alignment(s.alignment));
        m_view->setProgress(s.value, s.maximum, s.indeterminate);
        m_view->setWaitingForPlayer(s.waiting);
        if (!s.pauseTitle.isEmpty())
            m_view->setPauseTitle(s.pauseTitle);
        if (!s.skipTitle.isEmpty())
            m_view->setSkipTitle(s.skipTitle);
        if (m_launcher && m_timer.isActive() && !s.indeterminate && s.maximum > 0)
            m_launcher->setProgress(s.value / s.maximum);
    }
    const QString statistics = s.indeterminate
        ? QString()
        : statisticsText(s.value, s.maximum, m_tracks, double(s.bytes), m_bytesTotal, activeSeconds, paused);
    if (statistics != m_view->statistics())
        m_view->setStatistics(statistics);
}

QString CVRunProgress::timeLeftText(double seconds)
{
    if (seconds < 10)
        return u"a few seconds left"_s;
    if (seconds < 60)
        return u"about %1 seconds left"_s.arg(qMax(10, int(std::lround(seconds / 5)) * 5));
    const int minutes = int(std::ceil(seconds / 60));
    if (minutes < 60)
        return minutes == 1 ? u"about a minute left"_s : u"about %1 minutes left"_s.arg(minutes);
    return u"about %1 h %2 min left"_s.arg(minutes / 60).arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

QString CVRunProgress::statisticsText(
    double value, double maximum, int tracks, double bytesDone, double bytesTotal, double activeSeconds, bool paused)
{
    if (maximum <= 0)
        return {};
    // A span or restore copies in two steps a track; verification and the other runs take one.
    const bool copying = tracks > 0 && maximum == 2.0 * tracks;
    const int phaseTracks = copying ? tracks : int(maximum);
    const int done = qBound(0, int(copying ? std::floor(value / 2) : std::floor(value)), phaseTracks);
    QStringList parts;
    parts << u"%1 of %2 track%3"_s.arg(done).arg(phaseTracks).arg(phaseTracks == 1 ? u""_s : u"s"_s);
    if (copying && bytesTotal > 0)
        parts << u"%1 of %2"_s.arg(CVLibraryManager::humanReadableSizeFromBytes(qMin(bytesDone, bytesTotal)),
            CVLibraryManager::humanReadableSizeFromBytes(bytesTotal));
    if (copying && bytesDone > 0 && activeSeconds >= 1)
        parts << u"%1/s"_s.arg(CVLibraryManager::humanReadableSizeFromBytes(bytesDone / activeSeconds));
    if (paused) {
        parts << u"Paused"_s;
    } else if (activeSeconds >= 2) {
        // The share done: steps and bytes alike, so that neither many small files nor a few
        // large ones mislead the estimate.
        double fraction = value / maximum;
        if (copying && bytesTotal > 0)
            fraction = (fraction + qMin(1.0, bytesDone / bytesTotal)) / 2;
        if (fraction > 0.01 && fraction < 1)
            parts << timeLeftText(activeSeconds * (1 - fraction) / fraction);
    }
    return parts.join(u"  ·  "_s);
}
