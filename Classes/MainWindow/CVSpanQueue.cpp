#include "MainWindow/CVSpanQueue.h"

#include "Library/CVFormatters.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"
#include "Platform/CVSettings.h"

using namespace Qt::StringLiterals;

CVSpanQueue::CVSpanQueue(CVLibraryManager *library, CVSettings *settings, QObject *parent)
    : QObject(parent)
    , m_library(library)
    , m_settings(settings)
{
}

CVSpanQueue::~CVSpanQueue() = default;

QList<CVTrack *> CVSpanQueue::queuedTracks() const
{
    QList<CVTrack *> tracks(m_tracks.cbegin(), m_tracks.cend());
    std::sort(tracks.begin(), tracks.end(),
        [](const CVTrack *a, const CVTrack *b) { return a->integer(CVAttr::TrackID) < b->integer(CVAttr::TrackID); });
    return tracks;
}

bool CVSpanQueue::addOrRemove(const CVPredicate &predicate, bool remove)
{
    const CVTrackList tracks = m_library->smartSelectPredicate(predicate);
    const qsizetype before = m_tracks.size();
    bool changed = false;
    if (!remove)
        m_tracks.reserve(before + qsizetype(tracks->tracks.size()));
    for (CVTrack *t : tracks->tracks) {
        const qint64 id = t->integer(CVAttr::TrackID);
        if (remove) {
            changed = m_tracks.remove(id) > 0 || changed;
        } else {
            // Adding a track already there replaces its entry (with the same record).
            m_tracks.insert(id, t);
        }
    }
    // An unchanged queue is saved already (dropping what is queued, removing what is not).
    if (!changed && m_tracks.size() == before)
        return false;
    contentsChanged();
    return true;
}

void CVSpanQueue::fill(const CVPredicate &predicate, bool replace)
{
    if (replace)
        m_tracks.clear();
    const CVTrackList tracks = m_library->selectPredicate(predicate);
    for (CVTrack *t : tracks->tracks)
        m_tracks.insert(t->integer(CVAttr::TrackID), t);
    contentsChanged();
}

void CVSpanQueue::clear()
{
    m_tracks.clear();
    contentsChanged();
}

void CVSpanQueue::forget()
{
    m_tracks.clear();
    ++m_generation;
}

void CVSpanQueue::contentsChanged()
{
    ++m_generation;
    // Summed here: the library's summary of a list is keyed by all its track IDs and names its
    // artists and albums, which for a queue of a whole library costs far more than the line shows.
    if (!m_tracks.isEmpty()) {
        m_time = m_size = 0;
        for (const CVTrack *t : std::as_const(m_tracks)) {
            m_time += t->real(CVAttr::TotalTime);
            m_size += t->real(CVAttr::Size);
        }
    }
    save();
    Q_EMIT changed();
}

void CVSpanQueue::save()
{
    m_predicate = predicateForField(u"PersistentID"_s);
    if (m_settings->boolValue(CVSettingsKey::AutosaveSpanningQueue)) {
        m_settings->setValue(CVSettingsKey::SavedSpanningQueue, CVPredicateArchive::archive(m_predicate));
        m_settings->synchronize();
    }
}

QString CVSpanQueue::summary(bool roundTimes) const
{
    if (m_tracks.isEmpty())
        return u"No Media Selected"_s;
    const qint64 count = m_tracks.size();
    return u"%1 item%2, %3%4, %5"_s.arg(count).arg(count == 1 ? u""_s : u"s"_s,
        CVFormatters::humanReadableTimeFromMilliseconds(m_time, roundTimes), roundTimes ? u""_s : u" total time"_s,
        CVFormatters::humanReadableSizeFromBytes(m_size));
}

CVPredicate CVSpanQueue::predicateForField(const QString &field) const
{
    if (m_tracks.isEmpty())
        return CVPredicate::fromText(u"EMPTY"_s);
    if (field != u"TrackID"_s && field != u"PersistentID"_s)
        return CVPredicate::fromText(u"EMPTY"_s);
    // An unchanged queue is never worked out twice.
    if (m_predicateGeneration != m_generation) {
        m_predicateCache.clear();
        m_predicateGeneration = m_generation;
    }
    if (const auto it = m_predicateCache.constFind(field); it != m_predicateCache.cend())
        return *it;
    CVPredicate p;
    if (field == u"TrackID"_s) {
        std::vector<qint64> ids(m_tracks.keyBegin(), m_tracks.keyEnd());
        std::sort(ids.begin(), ids.end());
        QStringList texts;
        texts.reserve(qsizetype(ids.size()));
        for (qint64 id : ids)
            texts.append(QString::number(id));
        p = CVPredicate::forTrackIDs(std::move(ids));
        p.setCacheKey(texts.join(u','));
    } else {
        // Persistent IDs are 16 hexadecimal digits: their text order is their number's, and
        // numbers sort many times faster than texts (a whole library is queued at once). The
        // tracks are read in the library's order, which is their order in memory.
        std::vector<const CVTrack *> inOrder;
        inOrder.reserve(std::size_t(m_tracks.size()));
        const std::vector<CVTrack *> &all = m_library->allTracks();
        if (std::size_t(m_tracks.size()) > all.size() / 8) {
            for (const CVTrack *t : all)
                if (m_tracks.contains(t->integer(CVAttr::TrackID)))
                    inOrder.push_back(t);
        } else {
            inOrder.assign(m_tracks.cbegin(), m_tracks.cend());
            std::sort(inOrder.begin(), inOrder.end(),
                [](const CVTrack *a, const CVTrack *b) { return a->index() < b->index(); });
        }
        std::vector<std::pair<quint64, const QString *>> byNumber;
        byNumber.reserve(inOrder.size());
        bool numeric = true;
        for (const CVTrack *t : inOrder) {
            const QString &id = t->textRef(CVAttr::PersistentID);
            quint64 number = 0;
            numeric = numeric && id.size() == 16;
            for (const QChar c : id) {
                const char16_t u = c.unicode();
                const int digit = u >= u'0' && u <= u'9' ? u - u'0' : u >= u'A' && u <= u'F' ? u - u'A' + 10 : -1;
                numeric = numeric && digit >= 0;
                number = number << 4 | quint64(qMax(digit, 0));
            }
            byNumber.emplace_back(number, &id);
        }
        if (numeric)
            std::sort(byNumber.begin(), byNumber.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
        else
            std::sort(
                byNumber.begin(), byNumber.end(), [](const auto &a, const auto &b) { return *a.second < *b.second; });
        QStringList ids;
        ids.reserve(qsizetype(byNumber.size()));
        for (auto &[number, text] : byNumber) {
            if (!numeric) {
                ids.append(*text);
                continue;
            }
            // Written anew from the number: a copy of the track's own text would visit every
            // track's text again, in another order than the memory's.
            QString id(16, Qt::Uninitialized);
            QChar *digits = id.data();
            for (int i = 15; i >= 0; --i, number >>= 4)
                digits[i] = QChar(u"0123456789ABCDEF"[number & 0xF]);
            ids.append(std::move(id));
        }
        const QString key = ids.join(u',');
        p = CVPredicate::forPersistentIDs(std::move(ids));
        p.setCacheKey(key);
    }
    m_predicateCache.insert(field, p);
    return p;
}
