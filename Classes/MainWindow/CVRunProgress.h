#pragma once

#include <QElapsedTimer>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class CVLauncherEntry;
class CVMediaSpanner;
class CVSpanningView;

// Carries a run's progress from the engine's worker to the spanning view and the task bar.
// The engine's signals land here directly on the worker (a lock and a copy, no event and no
// repaint per track); a timer on the main thread shows the latest state a few times a second,
// with the tracks, bytes, rate and time left worked out from it.
class CVRunProgress : public QObject {
    Q_OBJECT

public:
    static constexpr int IntervalMs = 100;

    CVRunProgress(CVMediaSpanner *spanner, CVSpanningView *view, CVLauncherEntry *launcher, QObject *parent = nullptr);
    ~CVRunProgress() override;

    // A run of this many tracks and bytes begins; the view starts from a clean slate.
    void begin(int tracks, double bytes);
    // The run is over: the last state is shown and the task bar's progress goes.
    void end();
    bool isRunning() const { return m_timer.isActive(); }
    // Shows what has arrived since the last time (the timer's work; tests call it).
    void flush();

    // The statistics line for a state, exposed for tests: steps of a phase, bytes copied of all,
    // seconds of work (pauses left out).
    static QString statisticsText(double value, double maximum, int tracks, double bytesDone, double bytesTotal,
        double activeSeconds, bool paused);
    static QString timeLeftText(double seconds);

private:
    struct State {
        QString header;
        QString task;
        int alignment = Qt::AlignLeft;
        double value = 0;
        double maximum = 0;
        bool indeterminate = true;
        bool waiting = false;
        QString pauseTitle;
        QString skipTitle;
        qint64 bytes = 0;
        quint64 generation = 0;
    };

    void changed(const std::function<void(State &)> &edit);

    CVMediaSpanner *m_spanner;
    CVSpanningView *m_view;
    CVLauncherEntry *m_launcher;
    QTimer m_timer;
    QList<QMetaObject::Connection> m_connections;

    mutable QMutex m_mutex;
    State m_state; // guarded by m_mutex
    quint64 m_shown = ~quint64(0);

    // Main thread only.
    int m_tracks = 0;
    double m_bytesTotal = 0;
    double m_phaseMaximum = -1;
    QElapsedTimer m_phaseClock;
    qint64 m_pausedMs = 0;
    QElapsedTimer m_pauseClock;
};
