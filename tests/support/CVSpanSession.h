#pragma once

#include "CVTestPresenter.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpannerHost.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVSpanHistory.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVSettings.h"

#include <QList>
#include <QStringList>

#include "Engine/CVLibraryFilePlayerLink.h"

#include <QHash>
#include <QSet>

class CVPlayerLink;

// The window and the application delegate as a run sees them.
struct CVSessionHost : CVSpannerHost, CVSpannerRunHost {
    bool restoreMode() const override { return restore; }
    QString spanLocation() const override { return location; }
    void telliTunesToQuit() override;
    void clearSpanLocation() override { location.clear(); }
    void doSetSpanMode() override { restore = false; }
    bool crashedWhileSpanningLastRun() const override { return crashed; }
    void setCrashedWhileSpanningLastRun(bool c) override { crashed = c; }
    bool saveAction() override;

    bool restore = false;
    QString location;
    bool crashed = false;
    CVPlayerLink *link = nullptr;
    CVSpanHistory *history = nullptr;
};

// One start of the program for tests and benchmarks: settings, the library read and joined with
// its history, and the engine, in the current (temporary) home. The player link is the caller's.
class CVSpanSession {
public:
    explicit CVSpanSession(const QString &libraryFile, bool crashed = false);
    CVSpanSession(const CVSpanSession &) = delete;
    CVSpanSession &operator=(const CVSpanSession &) = delete;

    void usePlayerLink(CVPlayerLink *link);

    QList<CVTrack *> select(const QString &predicate);
    CVTrack *track(const QString &persistentID);
    // A span run to `to` (made when missing), or a restore run.
    void span(const QList<CVTrack *> &tracks, const QString &to);
    void restore(const QList<CVTrack *> &tracks);
    // The messages of the last run's result rows, in the results list's order.
    QStringList messages() const;

    CVSettings settings;
    CVTestPresenter presenter;
    CVLibraryManager library;
    CVSpanHistory history;
    CVFileManagerLink files;
    CVSessionHost host;
    CVMediaSpanner spanner;
};

// A player that is the library file itself, and that can be told to keep the old place of some
// tracks, as a stubborn player does.
struct CVStubbornFileLink : CVLibraryFilePlayerLink {
    using CVLibraryFilePlayerLink::CVLibraryFilePlayerLink;
    bool setTrackLocation(const QString &pid, const QString &path) override;
    QSet<QString> ignored;
    QHash<QString, int> calls;
};

// One start of the program with the library file as the player.
class CVFileSpanSession : public CVSpanSession {
public:
    explicit CVFileSpanSession(const QString &libraryFile, bool crashed = false);
    // The message of the track's row in the last run's results, or an empty text.
    QString row(const CVTrack *track) const;

    CVStubbornFileLink link;
};

// One start of the program with a player link of the given kind over the player's own database
// (Rhythmbox's file, Strawberry's collection), its journal in the support folder.
template<typename Link>
struct CVPlayerSpanSession : CVSpanSession {
    explicit CVPlayerSpanSession(const QString &database)
        : CVSpanSession(database)
        , link(database, CVSpanHistory::applicationSupportFolder(), &files)
    {
        usePlayerLink(&link);
    }
    Link link;
};
