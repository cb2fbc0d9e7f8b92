#include "Library/CVSelection.h"

#include "Library/CVFormatters.h"
#include "Library/CVSelectionPanes.h"
#include "Library/CVTrack.h"
#include "Platform/CVSettings.h"

#include <QMap>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace {

const QString kEmpty = u"EMPTY"_s;

// Absent sorts before any value; texts by UTF-16 code units.
int compareText(const CVTrack &a, const CVTrack &b, CVAttr attr)
{
    const bool ha = a.has(attr), hb = b.has(attr);
    if (ha != hb)
        return ha ? 1 : -1;
    if (!ha)
        return 0;
    const QString &x = a.textRef(attr), &y = b.textRef(attr);
    // Sort strings of repeated texts are shared: the same data is the same text.
    return x.constData() == y.constData() && x.size() == y.size() ? 0 : x.compare(y);
}

int compareNumber(const CVTrack &a, const CVTrack &b, CVAttr attr)
{
    const bool ha = a.has(attr), hb = b.has(attr);
    if (ha != hb)
        return ha ? 1 : -1;
    if (!ha)
        return 0;
    const qint64 x = a.integer(attr), y = b.integer(attr);
    return x < y ? -1 : (x > y ? 1 : 0);
}

} // namespace

CVSelection::CVSelection(CVSettings *settings)
    : m_settings(settings)
{
    reset({});
}

CVSelection::~CVSelection() = default;

void CVSelection::reset(std::vector<CVTrack *> allTracks)
{
    for (std::size_t i = 0; i < allTracks.size(); ++i)
        allTracks[i]->setIndex(int(i));
    auto all = std::make_shared<CVTrackListData>();
    all->id = 0;
    all->tracks = std::move(allTracks);
    m_all = all;
    m_ranks[0].clear();
    m_ranks[1].clear();
    m_inOrder[0].clear();
    m_inOrder[1].clear();
    for (auto &texts : m_folded)
        texts.clear();
    for (auto &done : m_foldedDone)
        done.clear();
    clearMemoization();
}

void CVSelection::clearMemoization()
{
    ++m_generation;
    m_lastSearch = {};
    m_selections.clear();
    m_stacks.clear();
    m_browserLists.clear();
    m_summaryAttributes.clear();
    m_summaryLines.clear();
    m_kindMemo.clear();
}

void CVSelection::setMemo(const QString &key, std::shared_ptr<const void> value, quint64 generation)
{
    // A memo cleared while the value was being worked out must not get it back.
    if (generation == m_generation)
        m_kindMemo.insert(key, std::move(value));
}

CVTrackList CVSelection::makeList(std::vector<CVTrack *> tracks)
{
    auto list = std::make_shared<CVTrackListData>();
    list->id = m_nextListID++;
    list->tracks = std::move(tracks);
    return list;
}

QString CVSelection::makeSafe(const QString &value)
{
    QString safe = value;
    // The order matters: backslashes are doubled before the other escapes add theirs.
    safe.replace(u"\\"_s, u"\\\\\\\\"_s);
    safe.replace(u"*"_s, u"\\\\*"_s);
    // "?" as "*": a question mark in a search is a letter to find, not a wildcard.
    safe.replace(u"?"_s, u"\\\\?"_s);
    safe.replace(u"\""_s, u"\\\""_s);
    safe.replace(u"'"_s, u"\\'"_s);
    return safe;
}

QString CVSelection::predicateForSpanFilter(const QString &title)
{
    static const std::pair<QString, QString> filters[] = {
        { u"All Tracks"_s, QString() },
        { u"All Spanned"_s, u"( ItemIsSpanned == 1 )"_s },
        { u"Dependently Spanned"_s, u"( ItemIsSpanned == 1 ) AND ( SymSpan == 1 )"_s },
        { u"Fully Spanned"_s, u"( ItemIsSpanned == 1 ) AND ( FullSpan == 1 )"_s },
        { u"Not Spanned"_s, u"( ItemIsSpanned == 0 )"_s },
        { u"All Restored"_s, u"( ItemIsRestored == 1 )"_s },
        { u"Dependently Restored"_s, u"( ItemIsRestored == 1 ) AND ( SymSpan == 1 )"_s },
        { u"Fully Restored"_s, u"( ItemIsRestored == 1 ) AND ( FullSpan == 1 )"_s },
        { u"Never Spanned"_s, u"( ItemIsSpanned == 0 ) AND ( ItemIsRestored == 0 )"_s },
    };
    for (const auto &[name, predicate] : filters)
        if (title.contains(name))
            return predicate.isNull() ? u""_s : predicate;
    return u""_s;
}

QString CVSelection::getSearchPredicate() const
{
    if (m_searchString.isEmpty())
        return u""_s;
    QString text = makeSafe(m_searchString);
    text.replace(u' ', u'*');
    const QHash<QString, QString> clauses {
        { u"Name"_s, u"( Name LIKE[cd] '*%1*' )"_s.arg(text) },
        { u"Album"_s, u"( Album LIKE[cd] '*%1*' )"_s.arg(text) },
        { u"Artist"_s, u"( Artist LIKE[cd] '*%1*' )"_s.arg(text) },
        { u"Genre"_s, u"( Genre LIKE[cd] '*%1*' )"_s.arg(text) },
    };
    const QStringList fields = m_settings ? m_settings->stringListValue(u"CVSearchFields"_s) : QStringList();
    // A name that is not one of the four adds nothing (an empty part would leave a dangling OR).
    QStringList parts;
    for (const QString &field : fields)
        if (clauses.contains(field))
            parts.append(clauses.value(field));
    return parts.join(u" OR "_s);
}

QList<CVPredicate> CVSelection::getPredicateStack(const CVPredicate &p) const
{
    const bool dictionary = p.kind() == CVPredicate::Kind::Dictionary;
    const bool savedQueue = dictionary && p.isSavedQueue();
    const bool playlist = dictionary && p.isPlaylist();
    const bool searchFree = dictionary && p.noSearch();
    const bool mediaText = !dictionary && p.text().contains(u"( MediaType "_s);
    const bool locationText = !dictionary && p.text().contains(u"( Location "_s);
    const CVPredicate none = CVPredicate::fromText(u""_s);
    auto pane = [&](CVPredicate (CVSelectionPanes::*get)() const) { return m_panes ? (m_panes->*get)() : none; };

    QList<CVPredicate> stack;
    stack.append(savedQueue || searchFree ? none : CVPredicate::fromText(getSearchPredicate()));
    stack.append(savedQueue ? none : pane(&CVSelectionPanes::getSpanFilterPredicate));
    stack.append(locationText || savedQueue ? p : pane(&CVSelectionPanes::getLocationPredicate));
    stack.append(mediaText || savedQueue ? p : pane(&CVSelectionPanes::getMediaTypePredicate));
    if (savedQueue)
        return stack;
    stack.append(pane(&CVSelectionPanes::getSpanQueuePredicate));
    stack.append(playlist ? p : pane(&CVSelectionPanes::getPlaylistPredicate));
    stack.append(playlist || mediaText ? none : p);
    return stack;
}

QString CVSelection::stackKey(const QList<CVPredicate> &stack)
{
    QString key;
    for (const CVPredicate &p : stack) {
        key += p.memoKey();
        key += QChar(0x1F);
    }
    return key;
}

CVTrackList CVSelection::selectPredicateStack(const QList<CVPredicate> &stack)
{
    const QString key = stackKey(stack);
    const auto it = m_stacks.constFind(key);
    if (it != m_stacks.cend())
        return *it;
    const quint64 generation = m_generation;
    CVTrackList list;
    for (const CVPredicate &p : stack)
        list = selectPredicate(p, list);
    if (generation == m_generation)
        m_stacks.insert(key, list);
    return list;
}

CVTrackList CVSelection::smartSelectPredicate(const CVPredicate &predicate)
{
    return selectPredicateStack(getPredicateStack(predicate));
}

bool CVSelection::trackMatches(const CVFilter &filter, const CVTrack &track)
{
    auto get = [&](const CVFilter::Leaf &leaf) {
        if (!leaf.trackAttribute || !track.has(*leaf.trackAttribute))
            return CVFilterValue::absent();
        const CVAttr a = *leaf.trackAttribute;
        switch (CVAttribute::type(a)) {
        case CVAttrType::Text:
            return CVFilterValue::ofText(&track.textRef(a));
        case CVAttrType::Integer:
            return CVFilterValue::ofNumber(double(track.integer(a)));
        case CVAttrType::Real:
            return CVFilterValue::ofNumber(track.real(a));
        case CVAttrType::Date:
            return CVFilterValue::ofNumber(double(track.date(a)));
        case CVAttrType::Boolean:
            return CVFilterValue::ofNumber(track.flag(a) ? 1 : 0);
        case CVAttrType::Derived:
            m_scratch = track.text(a);
            return CVFilterValue::ofText(&m_scratch);
        }
        return CVFilterValue::absent();
    };
    auto folded = [&](const CVFilter::Leaf &leaf, const CVFilterValue &v) -> const QString & {
        return foldedText(*leaf.trackAttribute, leaf.fold, track, *v.text);
    };
    return filter.matches(get, folded);
}

void CVSelection::prepareSearch()
{
    // The fields a search can look at, folded as its LIKE[cd] clauses fold them.
    constexpr quint8 fold = CVFilter::CaseFold | CVFilter::DiacriticFold;
    for (const CVAttr attr : { CVAttr::Name, CVAttr::Album, CVAttr::Artist, CVAttr::Genre })
        for (const CVTrack *t : m_all->tracks)
            if (t->has(attr))
                foldedText(attr, fold, *t, t->textRef(attr));
}

const QString &CVSelection::foldedText(CVAttr attr, quint8 fold, const CVTrack &track, const QString &text)
{
    // Searches fold the same texts at every keystroke: fold each once per load.
    if (CVAttribute::type(attr) == CVAttrType::Derived || track.index() < 0) {
        m_scratch = CVFilter::foldText(text, fold);
        return m_scratch;
    }
    const int key = int(attr) * 4 + fold;
    std::vector<QString> &texts = m_folded[std::size_t(key)];
    std::vector<bool> &done = m_foldedDone[std::size_t(key)];
    if (texts.empty()) {
        texts.resize(m_all->tracks.size());
        done.resize(m_all->tracks.size());
    }
    const auto i = std::size_t(track.index());
    if (!done[i]) {
        texts[i] = CVFilter::foldText(text, fold);
        done[i] = true;
    }
    return texts[i];
}

const std::vector<CVTrack *> &CVSelection::inOrder(Order order)
{
    std::vector<CVTrack *> &sorted = m_inOrder[order == Order::ArtistFirst ? 0 : 1];
    if (sorted.size() == m_all->tracks.size())
        return sorted;
    const std::vector<int> &rank = ranks(order);
    sorted.assign(m_all->tracks.size(), nullptr);
    for (CVTrack *t : m_all->tracks)
        sorted[std::size_t(rank[std::size_t(t->index())])] = t;
    return sorted;
}

const std::vector<int> &CVSelection::ranks(Order order)
{
    std::vector<int> &rank = m_ranks[order == Order::ArtistFirst ? 0 : 1];
    if (!rank.empty() || m_all->tracks.empty())
        return rank;
    std::vector<CVTrack *> sorted = m_all->tracks;
    const CVAttr first = order == Order::ArtistFirst ? CVAttr::SortArtist : CVAttr::SortAlbum;
    const CVAttr second = order == Order::ArtistFirst ? CVAttr::SortAlbum : CVAttr::DiscNumber;
    std::stable_sort(sorted.begin(), sorted.end(), [&](const CVTrack *a, const CVTrack *b) {
        int c = compareText(*a, *b, first);
        if (c)
            return c < 0;
        if (order == Order::ArtistFirst) {
            if ((c = compareText(*a, *b, second)))
                return c < 0;
            if ((c = compareNumber(*a, *b, CVAttr::DiscNumber)))
                return c < 0;
            if ((c = compareNumber(*a, *b, CVAttr::TrackNumber)))
                return c < 0;
        } else {
            if ((c = compareNumber(*a, *b, CVAttr::DiscNumber)))
                return c < 0;
            if ((c = compareNumber(*a, *b, CVAttr::TrackNumber)))
                return c < 0;
            if ((c = compareText(*a, *b, CVAttr::SortArtist)))
                return c < 0;
        }
        return compareText(*a, *b, CVAttr::SortName) < 0;
    });
    rank.resize(sorted.size());
    for (std::size_t i = 0; i < sorted.size(); ++i)
        rank[std::size_t(sorted[i]->index())] = int(i);
    return rank;
}

void CVSelection::sortTracks(std::vector<CVTrack *> &tracks, Order order)
{
    // Both orders are worked out once per load; a selection sorts by rank.
    const std::vector<int> &rank = ranks(order);
    auto before = [&](const CVTrack *a, const CVTrack *b) {
        return rank[std::size_t(a->index())] < rank[std::size_t(b->index())];
    };
    if (!std::is_sorted(tracks.begin(), tracks.end(), before))
        std::sort(tracks.begin(), tracks.end(), before);
}

QString CVSelection::predicateWithText(const QString &predicate, const QString &from, const QString &to)
{
    // The search predicate repeats the escaped text once per field; the same fields give the
    // same predicate with the text replaced.
    QString fromSafe = makeSafe(from), toSafe = makeSafe(to);
    fromSafe.replace(u' ', u'*');
    toSafe.replace(u' ', u'*');
    QString out = predicate;
    return out.replace(u"'*"_s + fromSafe + u"*'"_s, u"'*"_s + toSafe + u"*'"_s);
}

CVTrackList CVSelection::selectPredicate(const CVPredicate &predicate, const CVTrackList &sourceOrNull)
{
    const CVTrackList source = sourceOrNull ? sourceOrNull : m_all;
    const quint64 generation = m_generation;
    QHash<QString, CVTrackList> &entry = m_selections[source->id];
    const QString key = predicate.memoKey();
    if (const auto it = entry.constFind(key); it != entry.cend())
        return *it;

    std::vector<CVTrack *> result;
    bool sorted = false;
    if (predicate.kind() == CVPredicate::Kind::Text) {
        const QString &text = predicate.text();
        if (text.isEmpty()) {
            result = source->tracks;
        } else if (text == kEmpty) {
            sorted = true;
        } else {
            // A search typed on from the last one (same fields, its text extended) matches a subset
            // of what the last one matched: only those tracks need a look.
            const bool isSearch = source == m_all && !m_searchString.isEmpty() && text == getSearchPredicate();
            // From all tracks, walk them in the result's order: the result needs no sort.
            const bool albumFirst = text.contains(u"( Compilation == 1 )"_s);
            const std::vector<CVTrack *> *candidates
                = source == m_all ? &inOrder(albumFirst ? Order::AlbumFirst : Order::ArtistFirst) : &source->tracks;
            if (isSearch && m_lastSearch.tracks && !m_lastSearch.text.isEmpty()
                && m_searchString.startsWith(m_lastSearch.text)
                && predicateWithText(m_lastSearch.predicate, m_lastSearch.text, m_searchString) == text)
                candidates = &m_lastSearch.tracks->tracks;
            const std::shared_ptr<const CVFilter> filter = CVFilter::compile(text);
            for (CVTrack *t : *candidates)
                if (trackMatches(*filter, *t))
                    result.push_back(t);
            if (isSearch) {
                sortTracks(result, Order::ArtistFirst);
                CVTrackList list = makeList(std::move(result));
                m_lastSearch = { m_searchString, text, list };
                if (generation == m_generation)
                    m_selections[source->id].insert(key, list);
                return list;
            }
        }
    } else if (predicate.identifierField() == CVAttr::TrackID) {
        QHash<qint64, CVTrack *> byID;
        byID.reserve(qsizetype(source->tracks.size()));
        for (CVTrack *t : source->tracks)
            if (t->has(CVAttr::TrackID))
                byID.insert(t->integer(CVAttr::TrackID), t);
        for (qint64 id : predicate.trackIDs())
            if (CVTrack *t = byID.take(id))
                result.push_back(t);
    } else {
        QHash<QString, CVTrack *> byID;
        byID.reserve(qsizetype(source->tracks.size()));
        for (CVTrack *t : source->tracks)
            if (t->has(CVAttr::PersistentID))
                byID.insert(t->textRef(CVAttr::PersistentID), t);
        for (const QString &id : predicate.persistentIDs())
            if (CVTrack *t = byID.take(id))
                result.push_back(t);
    }
    if (!sorted) {
        const bool albumFirst
            = predicate.kind() == CVPredicate::Kind::Text && predicate.text().contains(u"( Compilation == 1 )"_s);
        sortTracks(result, albumFirst ? Order::AlbumFirst : Order::ArtistFirst);
    }
    CVTrackList list = makeList(std::move(result));
    // The entry may have gone with a clearMemoization in the meantime: leave it gone.
    if (generation == m_generation)
        m_selections[source->id].insert(key, list);
    return list;
}

CVBrowserList CVSelection::getBrowserListForField(
    const QString &field, const QString &column, const QString &sortField, const CVTrackList &sourceOrNull)
{
    const CVTrackList source = sourceOrNull ? sourceOrNull : m_all;
    const bool group = m_settings && m_settings->boolValue(u"CVGroupCompilationsInBrowser"_s);
    const bool albumArtists = m_settings && m_settings->boolValue(u"CVUseAlbumArtistsInBrowser"_s);
    const QString key = u"%1-%2-%3-%4-%5"_s.arg(
        field, column, sortField, group ? u"GroupCompilations"_s : u""_s, albumArtists ? u"UseAlbumArtists"_s : u""_s);
    const quint64 generation = m_generation;
    QHash<QString, CVBrowserList> &entry = m_browserLists[source->id];
    if (const auto it = entry.constFind(key); it != entry.cend())
        return *it;

    const std::optional<CVAttr> f = CVAttribute::fromName(field);
    const std::optional<CVAttr> k = CVAttribute::fromName(sortField);
    const bool artist = field == u"Artist"_s;
    QMap<QString, QString> values; // sort value -> display value, in plain text order
    bool compilationSeen = false;
    // Repeated texts of a load share their characters: a sort value met before is found by its
    // address (with no text compared), and only a new one goes into the ordered map. The display
    // value is kept per slot and put in at the end; the last track with a sort value gives it.
    struct Slot {
        QString sort;
        QString display;
    };
    std::vector<Slot> slots;
    QHash<std::pair<const QChar *, qsizetype>, int> byAddress;
    QHash<QString, int> byText;
    for (const CVTrack *t : source->tracks) {
        const bool compilation = t->has(CVAttr::Compilation) && t->integer(CVAttr::Compilation) != 0;
        compilationSeen |= compilation;
        if (artist && group && compilation)
            continue;
        CVAttr display = f.value_or(CVAttr::Count);
        CVAttr sort = k.value_or(CVAttr::Count);
        if (artist && albumArtists && t->has(CVAttr::AlbumArtist)) {
            display = CVAttr::AlbumArtist;
            sort = CVAttr::SortAlbumArtist;
        }
        if (display == CVAttr::Count || !t->has(display))
            continue;
        const bool storedSort = sort != CVAttr::Count && CVAttribute::type(sort) == CVAttrType::Text;
        int slot = -1;
        if (storedSort) {
            const QString &value = t->textRef(sort);
            const auto address = std::pair(value.constData(), value.size());
            slot = byAddress.value(address, -1);
            if (slot < 0) {
                slot = byText.value(value, -1);
                if (slot < 0) {
                    slots.push_back({ value, QString() });
                    slot = int(slots.size() - 1);
                    byText.insert(value, slot);
                }
                byAddress.insert(address, slot);
            }
        } else {
            const QString value = sort == CVAttr::Count ? QString() : t->displayText(sort);
            slot = byText.value(value, -1);
            if (slot < 0) {
                slots.push_back({ value, QString() });
                slot = int(slots.size() - 1);
                byText.insert(value, slot);
            }
        }
        slots[std::size_t(slot)].display
            = CVAttribute::type(display) == CVAttrType::Text ? t->textRef(display) : t->displayText(display);
    }
    for (const Slot &slot : slots)
        values.insert(slot.sort, slot.display);
    const qsizetype n = values.size();
    const QString noun = field == u"DisplaySpanLocation"_s ? u"Span Location"_s : field;
    CVBrowserList list;
    list.keys.append(u"."_s);
    list.rows.append(u"All (%1 %2%3)"_s.arg(n).arg(noun, n == 1 ? u""_s : u"s"_s));
    if (artist && group && compilationSeen) {
        list.keys.append(u"Compilations"_s);
        list.rows.append(u"Compilations"_s);
    }
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        list.keys.append(it.key());
        list.rows.append(it.value());
    }
    if (generation == m_generation)
        m_browserLists[source->id].insert(key, list);
    return list;
}

QVariantMap CVSelection::getSummaryAttibutesForTracks(const CVTrackList &tracks)
{
    if (!tracks || tracks->tracks.empty())
        return {};
    std::vector<qint64> ids;
    ids.reserve(tracks->tracks.size());
    for (const CVTrack *t : tracks->tracks)
        ids.push_back(t->integer(CVAttr::TrackID));
    std::sort(ids.begin(), ids.end());
    QStringList idTexts;
    idTexts.reserve(qsizetype(ids.size()));
    for (qint64 id : ids)
        idTexts.append(QString::number(id));
    const QString key = idTexts.join(u',');
    if (const auto it = m_summaryAttributes.constFind(key); it != m_summaryAttributes.cend())
        return *it;

    QHash<QString, QString> artists, albums;
    double time = 0, size = 0;
    for (const CVTrack *t : tracks->tracks) {
        if (t->has(CVAttr::AlbumArtist))
            artists.insert(t->text(CVAttr::SortAlbumArtist), t->textRef(CVAttr::AlbumArtist));
        else if (t->has(CVAttr::Artist))
            artists.insert(t->text(CVAttr::SortArtist), t->textRef(CVAttr::Artist));
        if (t->has(CVAttr::Album))
            albums.insert(t->text(CVAttr::SortAlbum), t->textRef(CVAttr::Album));
        time += t->real(CVAttr::TotalTime);
        size += t->real(CVAttr::Size);
    }
    auto describe = [](const QHash<QString, QString> &names, const QString &unknown, const QString &many) {
        if (names.size() == 1)
            return names.cbegin().value();
        if (names.isEmpty())
            return unknown;
        return many.arg(names.size());
    };
    const qsizetype count = qsizetype(tracks->tracks.size());
    QVariantMap attributes {
        { u"ArtistKey"_s, describe(artists, u"Unknown Artist"_s, u"%1 Artists"_s) },
        { u"AlbumKey"_s, describe(albums, u"Unknown Album"_s, u"%1 Albums"_s) },
        { u"NameKey"_s, count == 1 ? tracks->tracks.front()->text(CVAttr::Name) : u"%1 Tracks"_s.arg(count) },
        { u"CountKey"_s, count },
        { u"RawTimeKey"_s, time },
        { u"RoundedDisplayTimeKey"_s, CVFormatters::humanReadableTimeFromMilliseconds(time, true) },
        { u"DisplayTimeKey"_s, CVFormatters::humanReadableTimeFromMilliseconds(time, false) },
        { u"RawSizeKey"_s, size },
        { u"DisplaySizeKey"_s, CVFormatters::humanReadableSizeFromBytes(size) },
        { u"CacheKey"_s, key },
    };
    m_summaryAttributes.insert(key, attributes);
    return attributes;
}

QVariantMap CVSelection::getSummaryAttibutesForPredicate(const CVPredicate &predicate)
{
    return getSummaryAttibutesForTracks(smartSelectPredicate(predicate));
}

QVariantMap CVSelection::getSummaryLinesForPredicate(const CVPredicate &predicate, const QString &alternateTitle)
{
    const QVariantMap attributes = getSummaryAttibutesForPredicate(predicate);
    if (attributes.isEmpty())
        return {};
    const QString key = u"%1 - %2"_s.arg(alternateTitle, attributes.value(u"CacheKey"_s).toString());
    if (const auto it = m_summaryLines.constFind(key); it != m_summaryLines.cend())
        return *it;

    const QString artist = attributes.value(u"ArtistKey"_s).toString();
    const QString album = attributes.value(u"AlbumKey"_s).toString();
    const QString separator = !artist.isEmpty() && !album.isEmpty() ? u" \u00B7 "_s : u""_s;
    QString one, two;
    if (!alternateTitle.isEmpty()) {
        one = alternateTitle;
        two = artist + separator + album;
    } else if (predicate.kind() == CVPredicate::Kind::Dictionary) {
        one = attributes.value(u"NameKey"_s).toString();
        two = artist + separator + album;
    } else {
        one = artist;
        two = album;
    }
    const qint64 count = attributes.value(u"CountKey"_s).toLongLong();
    QString overview = u"%1 item%2, %3, %4"_s.arg(count).arg(count == 1 ? u""_s : u"s"_s,
        attributes.value(u"RoundedDisplayTimeKey"_s).toString(), attributes.value(u"DisplaySizeKey"_s).toString());
    if (count == 0) {
        two = one.isEmpty() ? u"Nothing Selected"_s : u""_s;
        overview = one.isEmpty() ? u""_s : u"No Tracks"_s;
    }
    const qsizetype lineBreak = one.indexOf(u'\n');
    if (lineBreak >= 0) {
        two = one.mid(one.lastIndexOf(u'\n') + 1);
        one = one.left(lineBreak);
    }
    QVariantMap lines {
        { u"SummaryAttributes"_s, attributes },
        { u"CacheKey"_s, key },
        { u"LineOneString"_s, one },
        { u"LineTwoString"_s, two },
        { u"OverviewString"_s, overview },
    };
    m_summaryLines.insert(key, lines);
    return lines;
}
