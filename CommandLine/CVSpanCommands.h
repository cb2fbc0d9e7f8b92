#pragma once

#include "Library/CVTrackList.h"

#include <QElapsedTimer>
#include <QString>

class CVCommandLineHost;
class CVLibraryManager;
class CVMediaSpanner;
class CVSettings;
class CVTrack;

// span, restore, update-dependent and locate: the checks a window would make (with the
// window's texts), then the run with progress, then the results.
class CVSpanCommands {
public:
    struct Options {
        QString to;
        bool anyway = false;
        bool yes = false;
        bool dryRun = false;
    };

    CVSpanCommands(CVLibraryManager &library, CVSettings &settings, CVMediaSpanner &spanner, CVCommandLineHost &host,
        Options options);

    int span(const CVTrackList &selection, bool restore);
    int updateDependent();
    int locate(const CVTrackList &selection);

private:
    bool checkLocation();
    // The engine's refusal to start, printed; false when refused.
    bool checkRunCanStart();
    bool confirm(const QString &question, const QString &verb);
    int dryRun(const QList<CVTrack *> &queue);
    void connectProgress(qint64 totalBytes, int tracks);
    int printResults();

    CVLibraryManager &m_library;
    CVSettings &m_settings;
    CVMediaSpanner &m_spanner;
    CVCommandLineHost &m_host;
    Options m_options;
    bool m_terminal = false;
    QElapsedTimer m_clock;
    qint64 m_bytesDone = 0;
    double m_step = 0;
    double m_steps = 0;
};
