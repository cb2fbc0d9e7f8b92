#pragma once

#include "Library/CVSpanHistoryStore.h"

#include <QDir>
#include <QFileInfo>
#include <QString>

#include <vector>

// Span history records for the helper's tests, written as the main program writes them.
struct CVHTestRecord {
    QString persistentID;
    QString playerLocation;
    QString spanLocation;
    bool symSpan = true;
    bool restored = false;
    bool removed = false;
};

inline bool writeTestHistory(const QString &storePath, const std::vector<CVHTestRecord> &records)
{
    QDir().mkpath(QFileInfo(storePath).absolutePath());
    CVSpanHistoryStore store;
    if (!store.open(storePath))
        return false;
    std::vector<CVSpanRecord> rows(records.size());
    std::vector<CVSpanRecord *> changed;
    for (std::size_t i = 0; i < records.size(); ++i) {
        const CVHTestRecord &in = records[i];
        CVSpanRecord &r = rows[i];
        r.setValue(CVSpanAttr::PersistentID, in.persistentID);
        r.setValue(CVSpanAttr::Name, QString(QStringLiteral("Track ") + in.persistentID));
        r.setValue(CVSpanAttr::ITunesLocation, in.playerLocation);
        r.setValue(CVSpanAttr::OriginalLocation, in.restored ? in.spanLocation : in.playerLocation);
        r.setValue(CVSpanAttr::SpanLocation, in.spanLocation);
        r.setValue(CVSpanAttr::SymSpan, in.symSpan);
        r.setValue(CVSpanAttr::FullSpan, !in.symSpan);
        r.setValue(CVSpanAttr::ItemIsRestored, in.restored);
        r.setValue(CVSpanAttr::RemovedFromITunes, in.removed);
        r.setValue(CVSpanAttr::NeedsVerification, false);
        changed.push_back(&r);
    }
    return store.save(changed);
}
