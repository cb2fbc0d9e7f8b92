#include "CVHSpanHistoryReader.h"

#include "Library/CVSpanHistory.h"
#include "Library/CVSpanHistoryStore.h"

#include <QFileInfo>
#include <QHash>

#include <deque>
#include <malloc.h>

using namespace Qt::StringLiterals;

QString CVHSpanHistoryReader::defaultStorePath()
{
    return CVSpanHistory::applicationSupportFolder() + u"/SpanRestoreHistory.cvcddb"_s;
}

bool CVHSpanHistoryReader::read(const QString &storePath, std::vector<CVHDependentTrack> &tracks, QString *error)
{
    tracks.clear();
    if (!QFileInfo(storePath).isFile())
        return true;
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
    // The records were many small allocations: give the memory back while the helper idles.
    malloc_trim(0);
    return true;
}
