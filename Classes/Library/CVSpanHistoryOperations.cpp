// The span history operations of CVLibraryManager: writing records after a run and
// carrying their facts onto the loaded tracks.
#include "Library/CVLibraryManager.h"

#include "Library/CVSpanHistory.h"
#include "Library/CVSpanRunState.h"
#include "Platform/CVLog.h"
#include "Platform/CVPresenter.h"
#include "Platform/CVSettings.h"

#include <QDateTime>
#include <QFile>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

bool samePath(const QString &a, const QString &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

bool beginsWith(const QString &path, const std::optional<QString> &folder)
{
    return folder && !folder->isEmpty() && path.startsWith(*folder, Qt::CaseInsensitive);
}

// A file whose bytes lie at the path itself, not a symbolic link to them.
bool realFileAt(const QString &path)
{
    struct stat st { };
    return !path.isEmpty() && ::lstat(QFile::encodeName(path).constData(), &st) == 0 && !S_ISLNK(st.st_mode);
}

double now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

// The descriptive copy that lets a record be shown and matched when its track is gone.
void copyDescription(CVSpanRecord &r, const CVTrack &t, bool withPersistentID)
{
    if (withPersistentID)
        r.setValue(CVSpanAttr::PersistentID,
            t.has(CVAttr::PersistentID) ? QVariant(t.text(CVAttr::PersistentID)) : QVariant());
    auto integer = [&](CVSpanAttr target, CVAttr source) {
        r.setValue(target, t.has(source) ? QVariant(t.integer(source)) : QVariant());
    };
    integer(CVSpanAttr::TrackID, CVAttr::TrackID);
    integer(CVSpanAttr::TrackNumber, CVAttr::TrackNumber);
    integer(CVSpanAttr::DiscNumber, CVAttr::DiscNumber);
    auto text = [&](CVSpanAttr target, CVAttr source) {
        r.setValue(target, t.has(source) ? QVariant(t.textRef(source)) : QVariant());
    };
    text(CVSpanAttr::LibraryPersistentID, CVAttr::LibraryPersistentID);
    text(CVSpanAttr::MediaType, CVAttr::MediaType);
    text(CVSpanAttr::Name, CVAttr::Name);
    text(CVSpanAttr::Artist, CVAttr::Artist);
    text(CVSpanAttr::Album, CVAttr::Album);
    text(CVSpanAttr::AlbumArtist, CVAttr::AlbumArtist);
    text(CVSpanAttr::SortName, CVAttr::SortName);
    text(CVSpanAttr::SortArtist, CVAttr::SortArtist);
    text(CVSpanAttr::SortAlbum, CVAttr::SortAlbum);
    text(CVSpanAttr::Kind, CVAttr::Kind);
    r.setValue(CVSpanAttr::Size, t.has(CVAttr::Size) ? QVariant(t.real(CVAttr::Size)) : QVariant());
    r.setValue(CVSpanAttr::TotalTime, t.has(CVAttr::TotalTime) ? QVariant(t.real(CVAttr::TotalTime)) : QVariant());
}

// The context's lock is only tried: a contended write goes ahead unlocked, and says so.
class TryLock {
public:
    TryLock(CVSpanHistoryContext *context, const char *operation)
        : m_context(context)
    {
        m_locked = context && context->lock().tryLock();
        if (!m_locked)
            CVLog::log(u"Unsuccessful spanManagedObjectContext tryLock (%1)"_s.arg(QLatin1StringView(operation)));
    }
    ~TryLock()
    {
        if (m_locked)
            m_context->lock().unlock();
    }
    TryLock(const TryLock &) = delete;
    TryLock &operator=(const TryLock &) = delete;

private:
    CVSpanHistoryContext *m_context;
    bool m_locked = false;
};

} // namespace

bool CVLibraryManager::checkSpanHistoryWritable(QString *error)
{
    if (!m_history) {
        if (error)
            *error = u"No span history is open."_s;
        return false;
    }
    return m_history->checkWritable(error);
}

std::vector<CVSpanRecord *> CVLibraryManager::fetchAllSpannedItems()
{
    CVSpanHistoryContext *context = m_history ? m_history->managedObjectContext(u"Span"_s) : nullptr;
    if (!context)
        return {};
    // The fetch runs whether or not the lock was had.
    const bool locked = context->lock().tryLock();
    std::vector<CVSpanRecord *> records = context->fetchAll();
    if (locked)
        context->lock().unlock();
    return records;
}

void CVLibraryManager::addItemToSpanStore(CVTrack *track, const QString &spanPath)
{
    CVSpanHistoryContext *context = m_history ? m_history->managedObjectContext(u"Span"_s) : nullptr;
    TryLock lock(context, "addItemToSpanStore:withSpanPath:");
    if (!context)
        return;
    CVSpanRecord &r = context->insertRecord();
    const bool isFull = samePath(track->text(CVAttr::Location), spanPath);
    copyDescription(r, *track, true);
    const bool restore = m_runState && m_runState->restoreMode();
    r.setValue(CVSpanAttr::BaseSpanPath, restore || !m_runState ? QVariant() : QVariant(m_runState->spanLocation()));
    r.setValue(CVSpanAttr::ITunesLocation, track->text(CVAttr::Location));
    r.setValue(CVSpanAttr::OriginalLocation, track->text(CVAttr::OriginalLocation));
    r.setValue(CVSpanAttr::SpanLocation, spanPath);
    r.setValue(CVSpanAttr::LastSpanDate, now());
    r.setValue(CVSpanAttr::SymSpan, !isFull);
    r.setValue(CVSpanAttr::FullSpan, isFull);
    r.setValue(CVSpanAttr::NeedsVerification, false);
    // The model's defaults for the flags this leaves alone.
    r.setValue(CVSpanAttr::ItemIsRestored, false);
    r.setValue(CVSpanAttr::RemovedFromITunes, false);
}

void CVLibraryManager::updateItemInSpanStore(CVTrack *track, const QString &spanPath)
{
    const bool isFull = samePath(track->text(CVAttr::Location), spanPath);
    const bool isRestore = samePath(track->text(CVAttr::OriginalLocation), spanPath);
    CVSpanHistoryContext *context = m_history ? m_history->managedObjectContext(u"Span"_s) : nullptr;
    TryLock lock(context, "updateItemInSpanStore:withSpanPath:");
    // No record: the writes go nowhere, as the store's fetch would leave them.
    CVSpanRecord *r = context ? context->fetchLast(track->text(CVAttr::PersistentID)) : nullptr;
    if (!r)
        return;
    copyDescription(*r, *track, false);
    if (m_runState && m_runState->isSpanningOrRestoringTracks()) {
        r->setValue(
            CVSpanAttr::BaseSpanPath, m_runState->restoreMode() ? QVariant() : QVariant(m_runState->spanLocation()));
        r->setValue(CVSpanAttr::LastSpanLocation, r->value(CVSpanAttr::SpanLocation));
    }
    r->setValue(CVSpanAttr::ITunesLocation, track->text(CVAttr::Location));
    r->setValue(CVSpanAttr::OriginalLocation, track->text(CVAttr::OriginalLocation));
    r->setValue(CVSpanAttr::SpanLocation, spanPath);
    r->setValue(isRestore ? CVSpanAttr::LastRestoreDate : CVSpanAttr::LastSpanDate, now());
    r->setValue(CVSpanAttr::SymSpan, !isFull);
    r->setValue(CVSpanAttr::FullSpan, isFull);
    r->setValue(CVSpanAttr::ItemIsRestored, isRestore);
    r->setValue(CVSpanAttr::NeedsVerification, false);
}

void CVLibraryManager::setSpanInformationForSpannedManagedObject(CVSpanRecord *record, CVTrack *track)
{
    CVSpanHistoryContext *context = m_history ? m_history->spanManagedObjectContext() : nullptr;
    TryLock lock(context, "setSpanInformationForSpannedManagedObject:andITunesTrack:");
    const QString loc = track->text(CVAttr::Location);
    QString orig = record->text(CVSpanAttr::OriginalLocation);
    QString span = record->text(CVSpanAttr::SpanLocation);
    const QString base = record->text(CVSpanAttr::BaseSpanPath);
    const QString lastSpan = record->text(CVSpanAttr::LastSpanLocation);
    bool restored = samePath(orig, span);
    bool spanned = !restored;

    // A track that was in flight during a crash keeps its facts until it is spanned again. A
    // restored record's span is its home, inside the media folder more often than not: that says
    // nothing about the copy in flight, so it does not count against being in flight.
    bool inFlight = false;
    if (m_runState && m_runState->crashedWhileSpanningLastRun() && m_settings) {
        if (!m_inFlightTracks) {
            const QVariantMap map = m_settings->mapValue(CVSettingsKey::LastTracksSpanned);
            m_inFlightTracks = QSet<QString>(map.keyBegin(), map.keyEnd());
        }
        inFlight = m_inFlightTracks->contains(record->text(CVSpanAttr::PersistentID))
            && (restored || !beginsWith(span, m_iTunesMediaPath));
    }
    if (!inFlight && realFileAt(loc)) {
        if (restored && !samePath(orig, loc)) {
            // Moved while restored.
            span = loc;
            orig = loc;
        } else if (spanned && !samePath(span, loc)) {
            if (!samePath(orig, loc) && !(beginsWith(loc, m_iTunesMediaPath) && beginsWith(orig, m_iTunesMediaPath))) {
                // The player points at a real file elsewhere: that place is the span location now.
                span = loc;
            } else {
                // The track has come home.
                record->setValue(CVSpanAttr::LastRestoreDate, now());
                span = loc;
                orig = loc;
                restored = true;
                spanned = false;
            }
        }
    }
    const bool sym = !samePath(loc, span);

    copyDescription(*record, *track, true);
    record->setValue(CVSpanAttr::ITunesLocation, loc);
    record->setValue(CVSpanAttr::OriginalLocation, orig);
    record->setValue(CVSpanAttr::SpanLocation, span);
    record->setValue(CVSpanAttr::SymSpan, sym);
    record->setValue(CVSpanAttr::FullSpan, !sym);
    record->setValue(CVSpanAttr::ItemIsRestored, restored);
    record->setValue(CVSpanAttr::RemovedFromITunes, false);
    record->setValue(CVSpanAttr::NeedsVerification, false);

    track->setFlag(CVAttr::ItemIsSpanned, spanned);
    track->setFlag(CVAttr::SymSpan, sym);
    track->setFlag(CVAttr::FullSpan, !sym);
    track->setFlag(CVAttr::ItemIsRestored, restored);
    if (const auto d = record->date(CVSpanAttr::LastSpanDate))
        track->setDate(CVAttr::LastSpanDate, qint64(*d));
    if (const auto d = record->date(CVSpanAttr::LastRestoreDate))
        track->setDate(CVAttr::LastRestoreDate, qint64(*d));
    if (!orig.isEmpty())
        track->setText(CVAttr::OriginalLocation, orig);
    if (!span.isEmpty())
        track->setText(CVAttr::SpanLocation, span);
    if (!lastSpan.isEmpty())
        track->setText(CVAttr::LastSpanLocation, lastSpan);
    if (!base.isEmpty()) {
        // Many tracks share a span location: its title is worked out once.
        auto title = m_displayTitles.constFind(base);
        if (title == m_displayTitles.cend())
            title = m_displayTitles.insert(base, createDisplayTitleForPath(base));
        track->setText(CVAttr::DisplaySpanLocation, *title);
        track->setText(CVAttr::BaseSpanPath, base);
    }
}

void CVLibraryManager::tagSpanItemAsRemovedFromITunes(CVSpanRecord *record)
{
    CVSpanHistoryContext *context = m_history ? m_history->spanManagedObjectContext() : nullptr;
    TryLock lock(context, "tagSpanItemAsRemovedFromITunes:");
    record->setValue(CVSpanAttr::RemovedFromITunes, true);
    record->setValue(CVSpanAttr::NeedsVerification, false);
}

CVLibraryManager::JoinResult CVLibraryManager::joinSpanHistory()
{
    JoinResult result;
    m_inFlightTracks.reset(); // read afresh once per join
    if (m_presenter)
        m_presenter->setProgressIndeterminate(true);
    std::vector<CVSpanRecord *> records = fetchAllSpannedItems();
    result.records = int(records.size());
    if (records.empty())
        return result;
    if (m_presenter)
        m_presenter->setStatusText(u"Retrieving Span Information"_s);
    // Sorted on keys read once: a record's value is a variant, costly to read in a comparison.
    std::vector<std::pair<QString, CVSpanRecord *>> keyed;
    keyed.reserve(records.size());
    for (CVSpanRecord *r : records)
        keyed.emplace_back(r->text(CVSpanAttr::PersistentID), r);
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    QStringList ids;
    ids.reserve(qsizetype(records.size()));
    for (std::size_t i = 0; i < keyed.size(); ++i) {
        records[i] = keyed[i].second;
        ids.append(keyed[i].first);
    }

    std::vector<CVTrack *> tracks = m_selection.selectPredicate(CVPredicate::forPersistentIDs(ids))->tracks;
    if (tracks.empty())
        return result;
    std::stable_sort(tracks.begin(), tracks.end(), [](const CVTrack *a, const CVTrack *b) {
        return a->textRef(CVAttr::PersistentID) < b->textRef(CVAttr::PersistentID);
    });
    if (m_presenter) {
        m_presenter->setProgressIndeterminate(false);
        m_presenter->setProgress(double(tracks.size()), 0);
        m_presenter->setStatusText(u"Updating Span Information and Syncing Corvana Database"_s);
    }
    // Side by side; when the counts are equal the lists are paired index by index, as they
    // always have been.
    const bool sameCount = records.size() == tracks.size();
    std::size_t j = 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (!sameCount && tracks[j]->textRef(CVAttr::PersistentID) != records[i]->text(CVSpanAttr::PersistentID)) {
            tagSpanItemAsRemovedFromITunes(records[i]);
            ++result.removedFromITunes;
            continue;
        }
        setSpanInformationForSpannedManagedObject(records[i], tracks[j]);
        ++result.joined;
        if (j + 1 < tracks.size()) {
            ++j;
            if (m_presenter && j % 1024 == 0)
                m_presenter->setProgress(double(tracks.size()), double(j));
        }
    }
    if (m_presenter) {
        m_presenter->setProgressIndeterminate(true);
        m_presenter->setStatusText(u"Saving Span Information"_s);
    }
    m_history->saveAction();
    // The flags changed: selections made before the join are stale.
    m_selection.clearMemoization();
    return result;
}
