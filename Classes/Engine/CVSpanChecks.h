#pragma once

#include "Platform/CVPresenter.h"

#include <QList>
#include <QString>
#include <QStringList>

class CVLibraryManager;
class CVMediaSpanner;
class CVTrack;

// The checks a front end makes before it starts a run, and their texts: files that cannot be
// found, free space with the reserve, a missing or unchosen location, an empty queue, the
// confirmation; and the advice about a newly chosen span location.
class CVSpanChecks {
public:
    enum class Outcome { Confirm, FilesNotFound, NotEnoughSpace, SpanLocationNotFound, NoSpanLocation, NoTracks };

    struct RunCheck {
        Outcome outcome = Outcome::Confirm;
        CVAlert alert; // the refusal, or the confirmation
        QList<CVTrack *> missing;
        // Which override the "Anyway" button sets: the space one for NotEnoughSpace.
        bool hasAnywayButton() const { return !alert.otherButton.isEmpty() && outcome != Outcome::Confirm; }
    };

    struct Request {
        QList<CVTrack *> queue;
        bool restoreMode = false;
        QString spanLocation;
        double queueSize = 0; // bytes
        bool overrideFilesNotFound = false;
        bool overrideEnoughSpace = false;
    };

    enum class Advice { None, Unusable, DriveRoot, PreviouslyUsed, InsideMediaFolder, StartupDrive };
    struct LocationCheck {
        Advice advice = Advice::None;
        CVAlert alert;
        QString previousLocation; // B, for PreviouslyUsed
    };

    CVSpanChecks(const CVMediaSpanner &spanner, const CVLibraryManager &library);

    // The records whose file is found neither at its current place nor at its new one (a file
    // reachable only through a symbolic link counts as not found).
    QList<CVTrack *> checkForFilesNotFoundInTracks(const QList<CVTrack *> &tracks) const;
    RunCheck checkBeforeRun(const Request &request) const;
    LocationCheck checkSpanLocation(const QString &location, const QStringList &baseSpanPaths, const QString &mediaPath,
        const QString &startupDriveName) const;

private:
    const CVMediaSpanner &m_spanner;
    const CVLibraryManager &m_library;
};
