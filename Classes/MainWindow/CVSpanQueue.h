#pragma once

#include "Library/CVPredicate.h"

#include <QHash>
#include <QList>
#include <QObject>

class CVLibraryManager;
class CVSettings;
class CVTrack;

// The spanning queue's tracks: what a drop, a confirmed menu command or a bulk selection adds or
// removes, the queue's predicates, its sums, and its copy in the settings. No widgets: the window
// delegate shows it and asks before it changes.
class CVSpanQueue : public QObject {
    Q_OBJECT

public:
    CVSpanQueue(CVLibraryManager *library, CVSettings *settings, QObject *parent = nullptr);
    ~CVSpanQueue() override;

    const QHash<qint64, CVTrack *> &tracks() const { return m_tracks; }
    bool isEmpty() const { return m_tracks.isEmpty(); }
    qsizetype count() const { return m_tracks.size(); }
    // The queued tracks by TrackID, ascending.
    QList<CVTrack *> queuedTracks() const;

    // Adds (or removes) the tracks the predicate selects in the window; true when the queue
    // changed (it is then saved).
    bool addOrRemove(const CVPredicate &predicate, bool remove);
    // The queue becomes (or gains) every library track of the predicate, and is saved.
    void fill(const CVPredicate &predicate, bool replace);
    // Emptied and saved.
    void clear();
    // Emptied for a new library: nothing saved, the tracks are about to go.
    void forget();

    // The queue as a predicate over TrackID or PersistentID ("EMPTY" when empty or another field).
    CVPredicate predicateForField(const QString &field) const;
    // The predicate the queue was last saved as (what browsing it narrows to).
    const CVPredicate &predicate() const { return m_predicate; }
    // Stores the queue's predicate, and archives it when "CVAutosaveSpanningQueue" is on.
    void save();

    // The bytes queued; an emptied queue keeps its last size (it never reaches the space check).
    double size() const { return m_size; }
    // "3 items, 12 minutes, 40.2 MB", or "No Media Selected".
    QString summary(bool roundTimes) const;

Q_SIGNALS:
    // The tracks changed; the queue is saved already.
    void changed();

private:
    void contentsChanged();

    CVLibraryManager *m_library;
    CVSettings *m_settings;
    QHash<qint64, CVTrack *> m_tracks; // TrackID -> track, so a track is queued once
    CVPredicate m_predicate = CVPredicate::fromText(QStringLiteral("EMPTY"));
    // The predicates by field, for the queue as it was at m_generation.
    mutable QHash<QString, CVPredicate> m_predicateCache;
    mutable quint64 m_predicateGeneration = 0;
    quint64 m_generation = 1;
    double m_time = 0;
    double m_size = 0;
};
