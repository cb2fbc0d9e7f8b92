#include "CVHSpanHistoryReader.h"

#include "Library/CVSpanHistory.h"
#include "Library/CVSpanHistoryStore.h"

#include <QFileInfo>
#include <QHash>

#include <deque>
#include <malloc.h>
#include <thread>

using namespace Qt::StringLiterals;

QString CVHSpanHistoryReader::defaultStorePath()
{
    return CVSpanHistory::applicationSupportFolder() + u"/SpanRestoreHistory.cvcddb"_s;
}

namespace {

bool readDependentTracks(const QString &storePath, std::vector<CVHDependentTrack> &tracks, QString *error)
{
    {
        CVSpanHistoryStore store;
        std::deque<CVSpanRecord> records;
        if (!store.open(storePath) || !store.fetchAll(records)) {
            if (error)
                *error = store.errorString();
            return false;
        }
        // A persistent ID's last record is the one that counts.
        QHash<QString, std::size_t> byID;
        for (const CVSpanRecord &r : records) {
            const QString id = r.text(CVSpanAttr::PersistentID);
            const QString player = r.text(CVSpanAttr::ITunesLocation);
            const QString span = r.text(CVSpanAttr::SpanLocation);
            const bool dependent = r.flag(CVSpanAttr::SymSpan) && !r.flag(CVSpanAttr::RemovedFromITunes)
                && !r.flag(CVSpanAttr::ItemIsRestored) && !player.isEmpty() && !span.isEmpty()
                && player.compare(span, Qt::CaseInsensitive) != 0;
            const auto it = byID.constFind(id);
            if (!dependent) {
                if (it != byID.cend())
                    tracks[*it].playerLocation.clear();
                continue;
            }
            CVHDependentTrack track { id, r.text(CVSpanAttr::Name), player, span };
            if (it != byID.cend()) {
                tracks[*it] = std::move(track);
            } else {
                byID.insert(id, tracks.size());
                tracks.push_back(std::move(track));
            }
        }
        std::erase_if(tracks, [](const CVHDependentTrack &t) { return t.playerLocation.isEmpty(); });
    }
    return true;
}

} // namespace

bool CVHSpanHistoryReader::read(const QString &storePath, std::vector<CVHDependentTrack> &tracks, QString *error)
{
    tracks.clear();
    if (!QFileInfo(storePath).isFile())
        return true;
    // The records are read on a thread of their own, so that their many small blocks live in
    // that thread's heap. Only the texts kept are copied into ours; then the other heap is
    // given back whole, and an idle helper keeps only what it needs.
    std::vector<CVHDependentTrack> read;
    bool ok = false;
    std::thread reader([&] { ok = readDependentTracks(storePath, read, error); });
    reader.join();
    const auto copy = [](const QString &text) { return QString(text.constData(), text.size()); };
    tracks.reserve(read.size());
    for (const CVHDependentTrack &t : read)
        tracks.push_back({ copy(t.persistentID), copy(t.name), copy(t.playerLocation), copy(t.spanLocation) });
    std::vector<CVHDependentTrack>().swap(read);
    malloc_trim(0);
    return ok;
}
