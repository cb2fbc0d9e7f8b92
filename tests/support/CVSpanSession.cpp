#include "CVSpanSession.h"

#include "Engine/CVPlayerLink.h"
#include "Library/CVTrack.h"

#include <QDir>

#include "Library/CVSpanHistory.h"

using namespace Qt::StringLiterals;

void CVSessionHost::telliTunesToQuit()
{
    link->quit();
}

bool CVSessionHost::saveAction()
{
    return history->saveAction();
}

CVSpanSession::CVSpanSession(const QString &libraryFile, bool crashed)
    : settings(CVSettings::defaultFilePath())
    , library(&settings)
    , spanner(nullptr, &files, &presenter)
{
    host.crashed = crashed;
    host.history = &history;
    library.setPresenter(&presenter);
    library.setLibraryFilePath(libraryFile);
    spanner.setHost(&host);
    spanner.setRunHost(&host);
    spanner.setLibrary(&library);
    spanner.setSettings(&settings);
    spanner.setQuitTimeout(20000);
    // Test machines often run everything as root; the refusal has a test of its own.
    spanner.setAllowRoot(true);
    if (library.loadiTunesXMLDatabase() != CVLibraryManager::LoadResult::Loaded)
        qFatal("the library does not load: %s", qPrintable(library.lastError()));
    history.setLibraryPersistentID([this] { return library.iTunesPersistentID(); });
    library.setSpanHistory(&history);
    library.setRunState(&spanner);
    history.managedObjectContext(u"Span"_s);
    library.joinSpanHistory();
}

void CVSpanSession::usePlayerLink(CVPlayerLink *link)
{
    host.link = link;
    spanner.setPlayerLink(link);
}

QList<CVTrack *> CVSpanSession::select(const QString &predicate)
{
    const CVTrackList list = library.selectPredicate(CVPredicate::fromText(predicate));
    return QList<CVTrack *>(list->tracks.cbegin(), list->tracks.cend());
}

CVTrack *CVSpanSession::track(const QString &persistentID)
{
    return select(u"( PersistentID == '%1' )"_s.arg(persistentID)).value(0);
}

void CVSpanSession::span(const QList<CVTrack *> &tracks, const QString &to)
{
    host.restore = false;
    host.location = to;
    QDir().mkpath(to);
    spanner.spanTracks(tracks);
}

void CVSpanSession::restore(const QList<CVTrack *> &tracks)
{
    host.restore = true;
    spanner.spanTracks(tracks);
}

QStringList CVSpanSession::messages() const
{
    QStringList out;
    for (const CVShownResultRow &row : spanner.lastResults().rows)
        out.append(row.message);
    return out;
}

bool CVStubbornFileLink::setTrackLocation(const QString &pid, const QString &path)
{
    ++calls[pid];
    return ignored.contains(pid) || CVLibraryFilePlayerLink::setTrackLocation(pid, path);
}

CVFileSpanSession::CVFileSpanSession(const QString &libraryFile, bool crashed)
    : CVSpanSession(libraryFile, crashed)
    , link(libraryFile, CVSpanHistory::applicationSupportFolder(), &files)
{
    usePlayerLink(&link);
}

QString CVFileSpanSession::row(const CVTrack *track) const
{
    for (const CVShownResultRow &r : spanner.lastResults().rows)
        if (r.trackObject == track)
            return r.message;
    return {};
}
