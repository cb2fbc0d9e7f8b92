#include "Browsing/CVSelectionModel.h"

#include "Library/CVLibraryManager.h"
#include "Library/CVSelection.h"

using namespace Qt::StringLiterals;

CVSelectionModel::CVSelectionModel(CVLibraryManager *library, QObject *parent)
    : QObject(parent)
    , m_library(library)
{
}

CVSelectionModel::~CVSelectionModel() = default;

QList<CVSelectionModel::Pane> CVSelectionModel::refreshOrder(Pane origin, bool browsingQueue)
{
    // The browser first: the filters count what it then shows, and a filter that falls back to
    // "All" is a change of its own, announced after this one.
    switch (origin) {
    case Pane::Search:
        return { Pane::Browser, Pane::SpanFilter, Pane::MediaFilter, Pane::Playlists, Pane::Locations,
            Pane::FilterPathBar };
    case Pane::SpanFilter:
        return { Pane::SpanFilter, Pane::Browser, Pane::MediaFilter, Pane::Playlists, Pane::Locations,
            Pane::FilterPathBar };
    case Pane::MediaFilter:
        return { Pane::MediaFilter, Pane::Browser, Pane::SpanFilter, Pane::Playlists, Pane::Locations,
            Pane::FilterPathBar };
    case Pane::Genre:
    case Pane::Artist:
    case Pane::Album:
        // The columns to the right and the track list; nothing else depends on them.
        return { Pane::Browser };
    case Pane::Browser:
        return { Pane::Browser, Pane::FilterPathBar };
    case Pane::Playlists:
        return { Pane::Playlists, Pane::Browser, Pane::SpanFilter, Pane::MediaFilter, Pane::Locations,
            Pane::FilterPathBar };
    case Pane::Locations:
        return { Pane::Locations, Pane::Browser, Pane::SpanFilter, Pane::MediaFilter, Pane::Playlists,
            Pane::FilterPathBar };
    case Pane::Queue:
        return { Pane::Browser, Pane::SpanFilter, Pane::MediaFilter, Pane::Playlists, Pane::Locations,
            Pane::FilterPathBar, Pane::WalkThrough };
    case Pane::QueueContents:
        // Only a browsed queue narrows the panes; the filter path bar names the queue either way.
        if (browsingQueue)
            return { Pane::Browser, Pane::SpanFilter, Pane::MediaFilter, Pane::Playlists, Pane::Locations,
                Pane::FilterPathBar, Pane::WalkThrough };
        return { Pane::FilterPathBar, Pane::WalkThrough };
    case Pane::FilterPathBar:
    case Pane::WalkThrough:
        break;
    }
    return {};
}

void CVSelectionModel::announce(Pane origin)
{
    if (!isLive())
        return;
    if (m_announcing) {
        if (!m_pending.contains(origin))
            m_pending.append(origin);
        return;
    }
    m_announcing = true;
    Pane next = origin;
    for (;;) {
        for (Pane listener : refreshOrder(next, m_browsingQueue))
            Q_EMIT changed(next, listener);
        if (m_pending.isEmpty())
            break;
        next = m_pending.takeFirst();
    }
    m_announcing = false;
}

QString CVSelectionModel::searchText() const
{
    return m_library->searchString();
}

void CVSelectionModel::setSearchText(const QString &text)
{
    if (text == m_library->searchString())
        return;
    m_library->setSearchString(text);
    announce(Pane::Search);
}

void CVSelectionModel::searchFieldsChanged()
{
    announce(Pane::Search);
}

void CVSelectionModel::setSpanFilter(const QString &name)
{
    if (name == m_spanFilter)
        return;
    m_spanFilter = name;
    announce(Pane::SpanFilter);
}

void CVSelectionModel::setMedia(const QString &name)
{
    const QString media = name == u"All"_s ? u"."_s : name;
    if (media == m_media)
        return;
    m_media = media;
    announce(Pane::MediaFilter);
}

QString CVSelectionModel::browserKey(Pane column) const
{
    switch (column) {
    case Pane::Genre:
        return m_genre;
    case Pane::Artist:
        return m_artist;
    case Pane::Album:
        return m_album;
    default:
        return u"."_s;
    }
}

void CVSelectionModel::keepBrowserKey(Pane column, const QString &key)
{
    switch (column) {
    case Pane::Genre:
        m_genre = key;
        break;
    case Pane::Artist:
        m_artist = key;
        break;
    case Pane::Album:
        m_album = key;
        break;
    default:
        break;
    }
}

void CVSelectionModel::setBrowserKey(Pane column, const QString &key)
{
    if (browserKey(column) == key)
        return;
    keepBrowserKey(column, key);
    announce(column);
}

void CVSelectionModel::browserListingChanged()
{
    announce(Pane::Browser);
}

void CVSelectionModel::setPlaylist(const QString &persistentID, const QString &name, const CVPredicate &tracks)
{
    m_playlistName = name;
    m_playlistPredicate = persistentID.isEmpty() ? CVPredicate::fromText(u""_s) : tracks;
    if (persistentID == m_playlistID)
        return;
    m_playlistID = persistentID;
    announce(Pane::Playlists);
}

void CVSelectionModel::setLocation(const QString &path, const QString &title)
{
    m_locationTitle = title;
    if (path == m_locationPath)
        return;
    m_locationPath = path;
    announce(Pane::Locations);
}

void CVSelectionModel::setBrowsingQueue(bool browsing)
{
    if (browsing == m_browsingQueue)
        return;
    m_browsingQueue = browsing;
    announce(Pane::Queue);
}

void CVSelectionModel::queueContentsChanged()
{
    announce(Pane::QueueContents);
}

void CVSelectionModel::clearForReload()
{
    m_spanFilter = u"All Tracks"_s;
    m_genre = m_artist = m_album = u"."_s;
    m_playlistID.clear();
    m_playlistName.clear();
    m_playlistPredicate = CVPredicate::fromText(u""_s);
    m_locationPath.clear();
    m_locationTitle.clear();
    m_pending.clear();
}

// ---- The predicate stack's parts ---------------------------------------------------------

CVPredicate CVSelectionModel::getSpanFilterPredicate() const
{
    return CVPredicate::fromText(CVSelection::predicateForSpanFilter(m_spanFilter));
}

CVPredicate CVSelectionModel::getMediaTypePredicate() const
{
    if (m_media == u"."_s)
        return CVPredicate::fromText(u""_s);
    return CVPredicate::fromText(u"( MediaType == '%1' )"_s.arg(m_media));
}

CVPredicate CVSelectionModel::getLocationPredicate() const
{
    // The chosen path, kept across the pane's rebuilds while its row comes and goes.
    return CVPredicate::fromText(m_library->trees().predicateForLocationPath(m_locationPath));
}

CVPredicate CVSelectionModel::getSpanQueuePredicate() const
{
    if (!m_browsingQueue)
        return CVPredicate::fromText(u""_s);
    return m_queuePredicate;
}

CVPredicate CVSelectionModel::getPlaylistPredicate() const
{
    return m_playlistPredicate;
}
