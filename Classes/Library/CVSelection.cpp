#include "Library/CVSelection.h"

#include "Library/CVFormatters.h"
#include "Library/CVSelectionPanes.h"
#include "Library/CVTrack.h"
#include "Platform/CVSettings.h"

#include <QMap>

#include <algorithm>
#include <array>
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

// Something worked out per text, kept by the text's address for the texts met lately: the
// texts of a load that repeat (artists, albums, genres, kinds) share their characters, and
// neighbouring tracks mostly repeat them.
template<typename T>
class CVRecentTexts {
public:
    T *find(const QString &text)
    {
        Entry &e = entry(text);
        return e.data == text.constData() && e.size == text.size() ? &e.value : nullptr;
    }
    void insert(const QString &text, T value)
    {
        Entry &e = entry(text);
        e.data = text.constData();
        e.size = text.size();
        e.value = std::move(value);
    }

private:
    struct Entry {
        const QChar *data = nullptr;
        qsizetype size = -1;
        T value {};
    };
    Entry &entry(const QString &text)
    {
        const quintptr h = (quintptr(text.constData()) >> 4) ^ quintptr(text.size()) * 0x9E3779B1u;
        return m_entries[(h ^ (h >> 7)) & (m_entries.size() - 1)];
    }
    std::array<Entry, 64> m_entries;
};

// Texts by address: an id for each text object. The load's repeated texts share their
// characters, so this numbers them without hashing any text; equal texts kept apart get
// separate ids, which a sorted numbering merges.
class CVTextIds {
public:
    explicit CVTextIds(std::size_t expected)
    {
        std::size_t size = 1024;
        while (size < expected * 2)
            size *= 2;
        m_table.assign(size, -1);
    }
    int idOf(const QString &text)
    {
        const QChar *data = text.constData();
        const auto length = text.size();
        quint64 h = (quint64(quintptr(data)) ^ (quint64(length) << 48)) * 0x9E3779B97F4A7C15ULL;
        std::size_t mask = m_table.size() - 1;
        for (std::size_t i = std::size_t(h >> 20) & mask;; i = (i + 1) & mask) {
            const int id = m_table[i];
            if (id < 0)
                break;
            const QString &known = m_texts[std::size_t(id)];
            if (known.constData() == data && known.size() == length)
                return id;
        }
        if ((m_texts.size() + 1) * 2 > m_table.size()) {
            m_table.assign(m_table.size() * 2, -1);
            mask = m_table.size() - 1;
            for (std::size_t id = 0; id < m_texts.size(); ++id)
                place(int(id), mask);
        }
        m_texts.push_back(text);
        place(int(m_texts.size() - 1), mask);
        return int(m_texts.size() - 1);
    }
    std::vector<QString> takeTexts() { return std::move(m_texts); }

private:
    void place(int id, std::size_t mask)
    {
        const QString &text = m_texts[std::size_t(id)];
        const quint64 h = (quint64(quintptr(text.constData())) ^ (quint64(text.size()) << 48)) * 0x9E3779B97F4A7C15ULL;
        std::size_t i = std::size_t(h >> 20) & mask;
        while (m_table[i] >= 0)
            i = (i + 1) & mask;
        m_table[i] = id;
    }
    std::vector<int> m_table;
    std::vector<QString> m_texts;
};

// A track's place in one of the two orders, worked out from numbers: the numbered texts, disc
// and track numbers (absent before any value); names are compared only on a tie, then the
// place the track had, so that tracks equal in everything keep their order.
struct CVTrackSortKey {
    int first = -1, second = -1, fourth = -1; // numbered texts: -1 when absent
    qint64 disc = 0, number = 0;
    bool hasDisc = false, hasNumber = false;
    int position = 0;
    CVTrack *track = nullptr;
};

CVTrackSortKey sortKey(CVTrack *t, int first, int second, int fourth, int position)
{
    CVTrackSortKey key { first, second, fourth, 0, 0, t->has(CVAttr::DiscNumber), t->has(CVAttr::TrackNumber), position,
        t };
    if (key.hasDisc)
        key.disc = t->integer(CVAttr::DiscNumber);
    if (key.hasNumber)
        key.number = t->integer(CVAttr::TrackNumber);
    return key;
}

std::vector<CVTrack *> sortedByKeys(std::vector<CVTrackSortKey> &keys)
{
    std::sort(keys.begin(), keys.end(), [](const CVTrackSortKey &a, const CVTrackSortKey &b) {
        if (a.first != b.first)
            return a.first < b.first;
        if (a.second != b.second)
            return a.second < b.second;
        if (a.hasDisc != b.hasDisc)
            return b.hasDisc;
        if (a.disc != b.disc)
            return a.disc < b.disc;
        if (a.hasNumber != b.hasNumber)
            return b.hasNumber;
        if (a.number != b.number)
            return a.number < b.number;
        if (a.fourth != b.fourth)
            return a.fourth < b.fourth;
        if (const int c = compareText(*a.track, *b.track, CVAttr::SortName))
            return c < 0;
        return a.position < b.position;
    });
    std::vector<CVTrack *> sorted(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i)
        sorted[i] = keys[i].track;
    return sorted;
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
    m_albumFirstRanks.clear();
    m_inOrder[0].reset();
    m_inOrder[1].reset();
    m_compilations.clear();
    m_textValues.clear();
    for (auto &texts : m_folded)
        texts.clear();
    for (auto &done : m_foldedDone)
        done.clear();
    clearMemoization();
    numberTracks();
}

void CVSelection::clearMemoization()
{
    ++m_generation;
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

CVTrackList CVSelection::makeList(std::vector<CVTrack *> tracks, std::vector<int> indices, Order order)
{
    auto list = std::make_shared<CVTrackListData>();
    list->id = m_nextListID++;
    list->tracks = std::move(tracks);
    list->indices = std::move(indices);
    list->order = order;
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
    const QStringList fields = m_settings ? m_settings->stringListValue(CVSettingsKey::SearchFields) : QStringList();
    if (m_searchString == m_searchPredicateText && fields == m_searchPredicateFields && !m_searchPredicateText.isNull())
        return m_searchPredicate;
    QString text = makeSafe(m_searchString);
    text.replace(u' ', u'*');
    const QHash<QString, QString> clauses {
        { u"Name"_s, u"( Name LIKE[cd] '*%1*' )"_s.arg(text) },
        { u"Album"_s, u"( Album LIKE[cd] '*%1*' )"_s.arg(text) },
        { u"Artist"_s, u"( Artist LIKE[cd] '*%1*' )"_s.arg(text) },
        { u"Genre"_s, u"( Genre LIKE[cd] '*%1*' )"_s.arg(text) },
    };
    // A name that is not one of the four adds nothing (an empty part would leave a dangling OR).
    QStringList parts;
    for (const QString &field : fields)
        if (clauses.contains(field))
            parts.append(clauses.value(field));
    m_searchPredicateText = m_searchString;
    m_searchPredicateFields = fields;
    m_searchPredicate = parts.join(u" OR "_s);
    return m_searchPredicate;
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

namespace {

// A track's value of a leaf's attribute as the filter sees it; texts by reference.
CVFilterValue trackValue(const CVTrack &track, CVAttr a, QString &scratch)
{
    if (!track.has(a))
        return CVFilterValue::absent();
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
        scratch = track.text(a);
        return CVFilterValue::ofText(&scratch);
    }
    return CVFilterValue::absent();
}

} // namespace

bool CVSelection::trackMatches(const CVFilter &filter, const CVTrack &track)
{
    return filter.matchesLeaves([&](int, const CVFilter::Leaf &leaf) {
        if (!leaf.trackAttribute)
            return CVFilter::matchLeaf(
                leaf, CVFilterValue::absent(), [](const auto &, const auto &) { return QString(); });
        const CVAttr a = *leaf.trackAttribute;
        const CVFilterValue v = trackValue(track, a, m_scratch);
        return CVFilter::matchLeaf(
            leaf, v, [&](const CVFilter::Leaf &l, const CVFilterValue &value) -> const QString & {
                return foldedText(a, l.fold, track, *value.text);
            });
    });
}

void CVSelection::filterTracks(const CVFilter &filter, const CVTrackListData &candidates, std::vector<CVTrack *> &out,
    std::vector<int> &outIndices)
{
    auto noFold = [](const CVFilter::Leaf &, const CVFilterValue &) { return QString(); };
    // A comparison of a stored text gives the same answer for the same text. Where the load's
    // distinct texts of the attribute are numbered, a track's number is looked up and each
    // number answered once per list; otherwise answers are kept by address for the texts met
    // lately (repeated texts share their characters, and neighbouring tracks repeat them).
    struct LeafPlan {
        TextValues *values = nullptr;
        const std::vector<int> *byTrack = nullptr;
        std::vector<qint8> answers; // by number: -1 not yet asked
        bool absentAnswer = false;
        CVRecentTexts<bool> recent;
    };
    const std::vector<CVFilter::Leaf> &leaves = filter.leaves();
    std::vector<LeafPlan> plans(leaves.size());
    for (std::size_t i = 0; i < leaves.size(); ++i) {
        const CVFilter::Leaf &leaf = leaves[i];
        plans[i].absentAnswer = CVFilter::matchLeaf(leaf, CVFilterValue::absent(), noFold);
        if (!leaf.trackAttribute || CVAttribute::type(*leaf.trackAttribute) != CVAttrType::Text)
            continue;
        if (const TextValues *values = textValuesIfMade(*leaf.trackAttribute)) {
            // Numbering pays when the list is not tiny against the number of texts.
            if (candidates.tracks.size() * 8 < values->texts.size())
                continue;
            plans[i].values = const_cast<TextValues *>(values);
            plans[i].byTrack = &values->byTrack[0];
            plans[i].answers.assign(values->texts.size(), -1);
        }
    }
    const CVTrack *track = nullptr;
    int trackIndex = -1;
    auto test = [&](int index, const CVFilter::Leaf &leaf) -> bool {
        LeafPlan &plan = plans[std::size_t(index)];
        if (!leaf.trackAttribute)
            return plan.absentAnswer;
        if (plan.values) {
            const int value = (*plan.byTrack)[std::size_t(trackIndex)];
            if (value < 0)
                return plan.absentAnswer;
            qint8 &answer = plan.answers[std::size_t(value)];
            if (answer < 0) {
                TextValues &values = *plan.values;
                answer = CVFilter::matchLeaf(leaf, CVFilterValue::ofText(&values.texts[std::size_t(value)]),
                    [&](const CVFilter::Leaf &l, const CVFilterValue &) -> const QString & {
                        return foldedValue(values, value, l.fold);
                    });
            }
            return answer != 0;
        }
        const CVAttr a = *leaf.trackAttribute;
        const CVTrack &t = *track;
        auto folded = [&](const CVFilter::Leaf &l, const CVFilterValue &v) -> const QString & {
            return foldedText(a, l.fold, t, *v.text);
        };
        if (CVAttribute::type(a) != CVAttrType::Text || !t.has(a))
            return CVFilter::matchLeaf(leaf, trackValue(t, a, m_scratch), folded);
        const QString &text = t.textRef(a);
        if (const bool *answer = plan.recent.find(text))
            return *answer;
        const bool answer = CVFilter::matchLeaf(leaf, CVFilterValue::ofText(&text), folded);
        plan.recent.insert(text, answer);
        return answer;
    };
    const std::size_t n = candidates.tracks.size();
    if (filter.singleLeaf()) {
        const CVFilter::Leaf &leaf = *filter.singleLeaf();
        const int index = int(&leaf - leaves.data());
        for (std::size_t i = 0; i < n; ++i) {
            track = candidates.tracks[i];
            trackIndex = candidates.indexAt(i);
            if (test(index, leaf)) {
                out.push_back(candidates.tracks[i]);
                outIndices.push_back(trackIndex);
            }
        }
        return;
    }
    for (std::size_t i = 0; i < n; ++i) {
        track = candidates.tracks[i];
        trackIndex = candidates.indexAt(i);
        if (filter.matchesLeaves(test)) {
            out.push_back(candidates.tracks[i]);
            outIndices.push_back(trackIndex);
        }
    }
}

void CVSelection::prepareLists()
{
    // The texts the first lists and counts look at: sorted and shown in the browser columns,
    // the media type that the media filters count.
    const bool albumArtists = m_settings && m_settings->boolValue(CVSettingsKey::UseAlbumArtistsInBrowser);
    std::vector<std::vector<CVAttr>> sets { { CVAttr::MediaType }, { CVAttr::SortGenre }, { CVAttr::Genre },
        { CVAttr::Artist }, { CVAttr::Album } };
    if (albumArtists) {
        sets.push_back({ CVAttr::SortArtist, CVAttr::SortAlbumArtist });
        sets.push_back({ CVAttr::AlbumArtist });
    }
    makeTextValues(sets);
    inOrder(Order::ArtistFirst);
    compilations();
}

void CVSelection::prepareSearch()
{
    // The fields a search can look at, numbered and folded as its LIKE[cd] clauses fold them,
    // the media type that the media filters count, and the order selections come out in.
    constexpr quint8 fold = CVFilter::CaseFold | CVFilter::DiacriticFold;
    makeTextValues({ { CVAttr::Name }, { CVAttr::Album }, { CVAttr::Artist }, { CVAttr::Genre } });
    for (const CVAttr attr : { CVAttr::Name, CVAttr::Album, CVAttr::Artist, CVAttr::Genre }) {
        TextValues &values = const_cast<TextValues &>(textValues({ attr }, false));
        for (int v = 0; v < int(values.texts.size()); ++v)
            foldedValue(values, v, fold);
    }
    textValues({ CVAttr::MediaType }, false);
    inOrder(Order::ArtistFirst);
    compilations();
}

const std::vector<quint8> &CVSelection::compilations()
{
    if (m_compilations.size() != m_all->tracks.size()) {
        m_compilations.assign(m_all->tracks.size(), 0);
        for (const CVTrack *t : m_all->tracks)
            m_compilations[std::size_t(t->index())]
                = t->has(CVAttr::Compilation) && t->integer(CVAttr::Compilation) != 0;
    }
    return m_compilations;
}

const QString &CVSelection::foldedValue(TextValues &values, int value, quint8 fold)
{
    std::vector<QString> &folded = values.folded[fold & 3];
    std::vector<quint8> &done = values.foldedDone[fold & 3];
    if (folded.empty()) {
        folded.resize(values.texts.size());
        done.resize(values.texts.size());
    }
    const auto v = std::size_t(value);
    if (!done[v]) {
        folded[v] = CVFilter::foldText(values.texts[v], fold);
        done[v] = 1;
    }
    return folded[v];
}

const QString &CVSelection::foldedText(CVAttr attr, quint8 fold, const CVTrack &track, const QString &text)
{
    // Searches fold the same texts at every keystroke: fold each once per load.
    if (CVAttribute::type(attr) == CVAttrType::Derived || track.index() < 0
        || std::size_t(track.index()) >= m_all->tracks.size()) {
        m_scratch = CVFilter::foldText(text, fold);
        return m_scratch;
    }
    const int key = int(attr) * 4 + fold;
    std::vector<QString> &texts = m_folded[std::size_t(key)];
    std::vector<quint8> &done = m_foldedDone[std::size_t(key)];
    if (texts.empty()) {
        texts.resize(m_all->tracks.size());
        done.resize(m_all->tracks.size());
    }
    const auto i = std::size_t(track.index());
    if (!done[i]) {
        texts[i] = CVFilter::foldText(text, fold);
        done[i] = 1;
    }
    return texts[i];
}

const CVSelection::TextValues *CVSelection::textValuesIfMade(CVAttr attribute) const
{
    const auto it = m_textValues.find(std::vector<CVAttr> { attribute });
    return it == m_textValues.end() ? nullptr : it->second.get();
}

void CVSelection::makeTextValues(const std::vector<std::vector<CVAttr>> &sets)
{
    // All in one walk over the tracks: a track's texts lie together, the tracks do not.
    std::vector<TextValues *> made;
    std::vector<CVTextIds> ids;
    std::vector<std::pair<std::size_t, CVAttr>> asked; // (made, attribute) per member of a set
    const std::vector<CVTrack *> &tracks = m_all->tracks;
    for (const std::vector<CVAttr> &attributes : sets) {
        std::unique_ptr<TextValues> &slot = m_textValues[attributes];
        if (slot)
            continue;
        slot = std::make_unique<TextValues>();
        slot->byTrack.assign(attributes.size(), std::vector<int>(tracks.size(), -1));
        for (const CVAttr a : attributes)
            asked.push_back({ made.size(), a });
        made.push_back(slot.get());
        ids.emplace_back(tracks.size() / 4);
    }
    if (made.empty())
        return;
    // Numbered in the tracks' order, so that a list's texts (folded ones too) are met mostly
    // in memory order.
    std::vector<const CVTrack *> byIndex(tracks.size());
    for (const CVTrack *t : tracks)
        byIndex[std::size_t(t->index())] = t;
    std::vector<std::size_t> member(made.size(), 0);
    for (std::size_t i = 0; i < byIndex.size(); ++i) {
        const CVTrack *t = byIndex[i];
        std::fill(member.begin(), member.end(), 0);
        for (const auto &[m, a] : asked) {
            const std::size_t k = member[m]++;
            if (t->has(a))
                made[m]->byTrack[k][i] = ids[m].idOf(t->textRef(a));
        }
    }
    for (std::size_t m = 0; m < made.size(); ++m)
        made[m]->texts = ids[m].takeTexts();
}

const CVSelection::TextValues &CVSelection::textValues(const std::vector<CVAttr> &attributes, bool sorted)
{
    std::unique_ptr<TextValues> &slot = m_textValues[attributes];
    if (!slot)
        makeTextValues({ attributes });
    TextValues &values = *slot;
    if (!sorted || values.sorted)
        return values;
    // Renumber in plain text order; equal texts (numbered apart by address) share a number.
    std::vector<int> order(values.texts.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(),
        [&](int x, int y) { return values.texts[std::size_t(x)].compare(values.texts[std::size_t(y)]) < 0; });
    std::vector<int> renumbered(order.size());
    std::vector<QString> texts;
    texts.reserve(order.size());
    for (std::size_t r = 0; r < order.size(); ++r) {
        const QString &text = values.texts[std::size_t(order[r])];
        if (texts.empty() || texts.back() != text)
            texts.push_back(text);
        renumbered[std::size_t(order[r])] = int(texts.size() - 1);
    }
    values.texts = std::move(texts);
    for (std::vector<int> &byTrack : values.byTrack)
        for (int &v : byTrack)
            if (v >= 0)
                v = renumbered[std::size_t(v)];
    for (int f = 0; f < 4; ++f) {
        values.folded[f].clear();
        values.foldedDone[f].clear();
    }
    values.sorted = true;
    return values;
}

const CVTrackList &CVSelection::inOrder(Order order)
{
    CVTrackList &sorted = m_inOrder[order == Order::AlbumFirst ? 1 : 0];
    if (sorted)
        return sorted;
    std::vector<CVTrack *> tracks(m_all->tracks.size(), nullptr);
    std::vector<int> indices(tracks.size());
    if (order == Order::AlbumFirst) {
        const std::vector<int> &rank = albumFirstRanks();
        for (CVTrack *t : m_all->tracks) {
            tracks[std::size_t(rank[std::size_t(t->index())])] = t;
            indices[std::size_t(rank[std::size_t(t->index())])] = t->index();
        }
    } else {
        for (CVTrack *t : m_all->tracks) {
            tracks[std::size_t(t->index())] = t;
            indices[std::size_t(t->index())] = t->index();
        }
    }
    sorted = makeList(std::move(tracks), std::move(indices), order);
    return sorted;
}

void CVSelection::numberTracks()
{
    // The texts compare as their numbers in text order (absent first, as -1); only tracks equal
    // in everything else compare their names. Sorted from the library's order, so that tracks
    // equal in every key keep it.
    const std::vector<int> &artist = textValues({ CVAttr::SortArtist }, true).byTrack[0];
    const std::vector<int> &album = textValues({ CVAttr::SortAlbum }, true).byTrack[0];
    std::vector<CVTrackSortKey> keys(m_all->tracks.size());
    for (std::size_t p = 0; p < keys.size(); ++p) {
        CVTrack *t = m_all->tracks[p];
        const auto i = std::size_t(t->index());
        keys[p] = sortKey(t, artist[i], album[i], -1, int(p));
    }
    const std::vector<CVTrack *> sorted = sortedByKeys(keys);
    // From here on a track's index is its place in that order; the numbered texts follow.
    std::vector<int> previous(sorted.size());
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        previous[i] = sorted[i]->index();
        sorted[i]->setIndex(int(i));
    }
    for (auto &[attributes, values] : m_textValues) {
        for (std::vector<int> &byTrack : values->byTrack) {
            std::vector<int> renumbered(byTrack.size());
            for (std::size_t i = 0; i < previous.size(); ++i)
                renumbered[i] = byTrack[std::size_t(previous[i])];
            byTrack = std::move(renumbered);
        }
    }
}

const std::vector<int> &CVSelection::albumFirstRanks()
{
    std::vector<int> &rank = m_albumFirstRanks;
    if (!rank.empty() || m_all->tracks.empty())
        return rank;
    const std::vector<int> &artist = textValues({ CVAttr::SortArtist }, true).byTrack[0];
    const std::vector<int> &album = textValues({ CVAttr::SortAlbum }, true).byTrack[0];
    std::vector<CVTrackSortKey> keys(m_all->tracks.size());
    for (std::size_t p = 0; p < keys.size(); ++p) {
        CVTrack *t = m_all->tracks[p];
        const auto i = std::size_t(t->index());
        keys[p] = sortKey(t, album[i], -1, artist[i], int(p));
    }
    const std::vector<CVTrack *> sorted = sortedByKeys(keys);
    rank.resize(sorted.size());
    for (std::size_t i = 0; i < sorted.size(); ++i)
        rank[std::size_t(sorted[i]->index())] = int(i);
    return rank;
}

void CVSelection::sortTracks(std::vector<CVTrack *> &tracks, std::vector<int> &indices, Order order)
{
    // Both orders are worked out once per load; a selection sorts by place.
    if (indices.size() != tracks.size()) {
        indices.resize(tracks.size());
        for (std::size_t i = 0; i < tracks.size(); ++i)
            indices[i] = tracks[i]->index();
    }
    const std::vector<int> *rank = order == Order::AlbumFirst ? &albumFirstRanks() : nullptr;
    auto place = [&](int index) { return rank ? (*rank)[std::size_t(index)] : index; };
    std::vector<std::pair<int, CVTrack *>> keyed(tracks.size());
    for (std::size_t i = 0; i < tracks.size(); ++i)
        keyed[i] = { place(indices[i]), tracks[i] };
    auto before = [](const auto &a, const auto &b) { return a.first < b.first; };
    if (std::is_sorted(keyed.begin(), keyed.end(), before))
        return;
    std::sort(keyed.begin(), keyed.end(), before);
    for (std::size_t i = 0; i < keyed.size(); ++i) {
        tracks[i] = keyed[i].second;
        indices[i] = keyed[i].second->index();
    }
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

    auto remember = [&](CVTrackList list) {
        // The entry may have gone with a clearMemoization in the meantime: leave it gone.
        if (generation == m_generation)
            m_selections[source->id].insert(key, list);
        return list;
    };
    const bool text = predicate.kind() == CVPredicate::Kind::Text;
    const Order order
        = text && predicate.text().contains(u"( Compilation == 1 )"_s) ? Order::AlbumFirst : Order::ArtistFirst;
    // A list already in the result's order stays in it when narrowed; all tracks are walked in it.
    const CVTrackListData *candidates = source.get();
    bool sorted = source->order == order;
    if (source == m_all) {
        candidates = inOrder(order).get();
        sorted = true;
    }

    std::vector<CVTrack *> result;
    std::vector<int> indices;
    if (text) {
        const QString &filterText = predicate.text();
        if (filterText.isEmpty()) {
            // Everything passes: a list already in order is its own result.
            if (source != m_all && sorted)
                return remember(source);
            result = candidates->tracks;
            indices = candidates->indices;
        } else if (filterText == kEmpty) {
            sorted = true;
        } else {
            // A search whose text extends a known one (same fields) matches a subset of what that
            // one matched: only those tracks need a look. The longest known beginning of the text
            // is taken, so a key typed after a deleted one narrows too.
            const bool isSearch = source == m_all && !m_searchString.isEmpty() && filterText == getSearchPredicate();
            CVTrackList narrowed;
            for (qsizetype length = isSearch ? m_searchString.size() - 1 : 0; length > 0 && !narrowed; --length) {
                const QString shorter = predicateWithText(filterText, m_searchString, m_searchString.left(length));
                narrowed = entry.value(CVPredicate::fromText(shorter).memoKey());
            }
            if (narrowed) {
                candidates = narrowed.get();
                sorted = narrowed->order == order;
            }
            filterTracks(*CVFilter::compile(filterText), *candidates, result, indices);
            if (isSearch) {
                if (!sorted)
                    sortTracks(result, indices, order);
                return remember(makeList(std::move(result), std::move(indices), order));
            }
        }
    } else {
        sorted = false;
        if (predicate.identifierField() == CVAttr::TrackID) {
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
    }
    if (!sorted || indices.size() != result.size())
        sortTracks(result, indices, order);
    return remember(makeList(std::move(result), std::move(indices), order));
}

CVBrowserList CVSelection::getBrowserListForField(
    const QString &field, const QString &column, const QString &sortField, const CVTrackList &sourceOrNull)
{
    const CVTrackList source = sourceOrNull ? sourceOrNull : m_all;
    const bool group = m_settings && m_settings->boolValue(CVSettingsKey::GroupCompilationsInBrowser);
    const bool albumArtists = m_settings && m_settings->boolValue(CVSettingsKey::UseAlbumArtistsInBrowser);
    const QString key = u"%1-%2-%3-%4-%5"_s.arg(
        field, column, sortField, group ? u"GroupCompilations"_s : u""_s, albumArtists ? u"UseAlbumArtists"_s : u""_s);
    const quint64 generation = m_generation;
    QHash<QString, CVBrowserList> &entry = m_browserLists[source->id];
    if (const auto it = entry.constFind(key); it != entry.cend())
        return *it;

    const std::optional<CVAttr> f = CVAttribute::fromName(field);
    const std::optional<CVAttr> k = CVAttribute::fromName(sortField);
    const bool artist = field == u"Artist"_s;
    const QString noun = field == u"DisplaySpanLocation"_s ? u"Span Location"_s : field;
    auto finish = [&](const QStringList &keys, const QStringList &rows, bool compilationSeen) {
        const qsizetype n = keys.size();
        CVBrowserList list;
        list.keys.reserve(n + 2);
        list.rows.reserve(n + 2);
        list.keys.append(u"."_s);
        list.rows.append(u"All (%1 %2%3)"_s.arg(n).arg(noun, n == 1 ? u""_s : u"s"_s));
        if (artist && group && compilationSeen) {
            list.keys.append(u"Compilations"_s);
            list.rows.append(u"Compilations"_s);
        }
        list.keys.append(keys);
        list.rows.append(rows);
        if (generation == m_generation)
            m_browserLists[source->id].insert(key, list);
        return list;
    };
    if (f && k) {
        QStringList keys, rows;
        bool compilationSeen = false;
        if (browserListByRanks(*f, *k, artist, group, albumArtists, *source, keys, rows, compilationSeen))
            return finish(keys, rows, compilationSeen);
    }

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
    return finish(values.keys(), values.values(), compilationSeen);
}

bool CVSelection::browserListByRanks(CVAttr display, CVAttr sort, bool artist, bool group, bool albumArtists,
    const CVTrackListData &tracks, QStringList &keys, QStringList &rows, bool &compilationSeen)
{
    // Sort values that are stored texts: each track's value is a number in text order among
    // the load's distinct values, so the list is made by marking numbers, with no text hashed or
    // compared. Album artists sort among the artists, so both share one numbering. The shown
    // texts are read from the numbered texts too, so the tracks themselves are not touched.
    const bool withAlbumArtists = artist && albumArtists;
    if (CVAttribute::type(sort) != CVAttrType::Text)
        return false;
    const TextValues &ranks
        = withAlbumArtists ? textValues({ sort, CVAttr::SortAlbumArtist }, true) : textValues({ sort }, true);
    const TextValues *shown
        = CVAttribute::type(display) == CVAttrType::Text ? &textValues({ display }, false) : nullptr;
    const TextValues *albumArtist = withAlbumArtists ? &textValues({ CVAttr::AlbumArtist }, false) : nullptr;
    const std::vector<quint8> &compilation = compilations();
    // An absent sort value sorts as the empty text, which comes before every other text.
    const bool hasEmpty = !ranks.texts.empty() && ranks.texts.front().isEmpty();
    // By number + 1 (0: the empty text when no track has it): the last track with that value.
    std::vector<int> last(ranks.texts.size() + 1, -1);
    std::vector<quint8> byAlbumArtist(withAlbumArtists ? last.size() : 0);
    for (std::size_t i = 0; i < tracks.tracks.size(); ++i) {
        const auto index = std::size_t(tracks.indexAt(i));
        compilationSeen |= compilation[index] != 0;
        if (artist && group && compilation[index])
            continue;
        const bool useAlbumArtist = albumArtist && albumArtist->byTrack[0][index] >= 0;
        if (!useAlbumArtist && !(shown ? shown->byTrack[0][index] >= 0 : tracks.tracks[i]->has(display)))
            continue;
        int rank = ranks.byTrack[useAlbumArtist ? 1 : 0][index];
        if (rank < 0)
            rank = hasEmpty ? 0 : -1;
        last[std::size_t(rank + 1)] = int(i);
        if (withAlbumArtists)
            byAlbumArtist[std::size_t(rank + 1)] = useAlbumArtist;
    }
    for (std::size_t slot = 0; slot < last.size(); ++slot) {
        if (last[slot] < 0)
            continue;
        const auto i = std::size_t(last[slot]);
        const auto index = std::size_t(tracks.indexAt(i));
        keys.append(slot == 0 ? QString() : ranks.texts[slot - 1]);
        if (withAlbumArtists && byAlbumArtist[slot])
            rows.append(albumArtist->texts[std::size_t(albumArtist->byTrack[0][index])]);
        else if (shown)
            rows.append(shown->texts[std::size_t(shown->byTrack[0][index])]);
        else
            rows.append(tracks.tracks[i]->displayText(display));
    }
    return true;
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
