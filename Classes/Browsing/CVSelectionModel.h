#pragma once

#include "Library/CVPredicate.h"
#include "Library/CVSelectionPanes.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class CVLibraryManager;

// What every pane of the window selects, in one place: the search, the span filter, the media,
// the browser's genre, artist and album keys, the playlist, the location, and whether the queue
// is browsed. It serves the predicate stack, and announces each change once per listening pane,
// in the order the panes must refresh: a pane never refreshes another.
class CVSelectionModel : public QObject, public CVSelectionPanes {
    Q_OBJECT

public:
    // The panes, as the origin of a change and as its listeners.
    enum class Pane {
        Search,
        SpanFilter,
        MediaFilter,
        Genre,
        Artist,
        Album,
        Browser, // the three columns and the track list, refreshed whole
        Playlists,
        Locations,
        Queue, // browsing the queue turned on or off
        QueueContents, // tracks added to or removed from the queue
        FilterPathBar,
        WalkThrough,
    };
    Q_ENUM(Pane)

    explicit CVSelectionModel(CVLibraryManager *library, QObject *parent = nullptr);
    ~CVSelectionModel() override;

    // Who refreshes, in order, after a change from origin. The origin's own view is listed
    // where it shows the model's value rather than being its source (the filters' buttons, a
    // pane whose selection must follow a cleared filter).
    static QList<Pane> refreshOrder(Pane origin, bool browsingQueue);

    // Changes are announced only while this says the panes are on screen; before, the load
    // fills them itself.
    void setLiveCheck(std::function<bool()> live) { m_live = std::move(live); }
    bool isLive() const { return m_live && m_live(); }

    QString searchText() const;
    void setSearchText(const QString &text);
    // The search fields changed (they are kept in the settings): the search is applied again.
    void searchFieldsChanged();

    const QString &spanFilter() const { return m_spanFilter; }
    void setSpanFilter(const QString &name);
    // "." is every media.
    const QString &media() const { return m_media; }
    void setMedia(const QString &name);

    // The browser's keys ("." for the "All" row), already made safe for a filter text.
    QString browserKey(Pane column) const;
    // A click in a column: the columns to its right follow.
    void setBrowserKey(Pane column, const QString &key);
    // The browser's own refresh re-reads its keys: part of the change under way, not a new one.
    void keepBrowserKey(Pane column, const QString &key);
    // Settings that change how the browser lists: it refreshes whole.
    void browserListingChanged();

    const QString &playlistID() const { return m_playlistID; }
    const QString &playlistName() const { return m_playlistName; }
    bool hasPlaylist() const { return !m_playlistID.isEmpty(); }
    // An empty ID is no playlist. The same ID with a new predicate (a reload) is no change.
    void setPlaylist(const QString &persistentID, const QString &name, const CVPredicate &tracks);

    const QString &locationPath() const { return m_locationPath; }
    const QString &locationTitle() const { return m_locationTitle; }
    bool hasLocation() const { return !m_locationPath.isEmpty(); }
    void setLocation(const QString &path, const QString &title);

    bool isBrowsingQueue() const { return m_browsingQueue; }
    void setBrowsingQueue(bool browsing);
    // The queue's predicate (the queue keeps it current); queueContentsChanged announces it.
    void setQueuePredicate(const CVPredicate &predicate) { m_queuePredicate = predicate; }
    void queueContentsChanged();

    // Nothing selected, without announcing (a reload); the media filter sets its own default.
    void clearForReload();

    // CVSelectionPanes
    CVPredicate getSpanFilterPredicate() const override;
    CVPredicate getMediaTypePredicate() const override;
    CVPredicate getLocationPredicate() const override;
    CVPredicate getSpanQueuePredicate() const override;
    CVPredicate getPlaylistPredicate() const override;

Q_SIGNALS:
    // One change, told to each listener in refresh order: a pane refreshes when listener is
    // itself.
    void changed(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener);

private:
    void announce(Pane origin);

    CVLibraryManager *m_library;
    std::function<bool()> m_live;
    QString m_spanFilter = QStringLiteral("All Tracks");
    QString m_media = QStringLiteral(".");
    QString m_genre = QStringLiteral(".");
    QString m_artist = QStringLiteral(".");
    QString m_album = QStringLiteral(".");
    QString m_playlistID;
    QString m_playlistName;
    CVPredicate m_playlistPredicate = CVPredicate::fromText(QString());
    QString m_locationPath;
    QString m_locationTitle;
    bool m_browsingQueue = false;
    CVPredicate m_queuePredicate = CVPredicate::fromText(QStringLiteral("EMPTY"));
    // A change made while listeners refresh is announced after them, once.
    bool m_announcing = false;
    QList<Pane> m_pending;
};
