#pragma once

#include "Library/CVSpanHistoryStore.h"

#include <QMutex>
#include <QString>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class CVPresenter;

// The model of the store: its one entity and the schema version it is kept at.
struct CVSpanHistoryModel {
    QString entity;
    int schemaVersion = 0;
};

// The records of the store as the program works on them: fetched once, changed in place,
// written by save. Writers take the lock with a try that does not wait (see the callers).
class CVSpanHistoryContext {
public:
    explicit CVSpanHistoryContext(CVSpanHistoryStore *store);

    QMutex &lock() { return m_lock; }
    // Every record, loading them on first use. The same objects on every call.
    std::vector<CVSpanRecord *> fetchAll();
    // The last record with this persistent ID, or none.
    CVSpanRecord *fetchLast(const QString &persistentID);
    CVSpanRecord &insertRecord();
    bool hasChanges() const;
    bool save(QString *error);

private:
    void load();

    CVSpanHistoryStore *m_store;
    QMutex m_lock;
    bool m_loaded = false;
    std::deque<CVSpanRecord> m_records;
};

// The span history, handed out by name as the program asks for it: model, coordinator
// (the opened store) and context, each made once. Only the name "Span" has them.
class CVSpanHistory {
public:
    explicit CVSpanHistory(CVPresenter *presenter = nullptr);
    ~CVSpanHistory();

    // $XDG_DATA_HOME/Corvana, or the temporary folder's "Corvana" without a data folder.
    static QString applicationSupportFolder();

    // The library's persistent ID, which the store waits for before it opens.
    void setLibraryPersistentID(std::function<std::optional<QString>()> id) { m_libraryID = std::move(id); }

    const CVSpanHistoryModel *managedObjectModel(const QString &name);
    CVSpanHistoryStore *persistentStoreCoordinator(const QString &name);
    CVSpanHistoryContext *managedObjectContext(const QString &name);
    CVSpanHistoryContext *spanManagedObjectContext() const { return m_context.get(); }
    // Saves the context's changes; a failure is presented.
    bool saveAction();
    // Saves without presenting; the reason in error. What a run relies on before it trashes.
    bool save(QString *error);
    // Whether records can be written now (the store opened, and a real write went through).
    bool checkWritable(QString *error);

    // The store file could not be opened: the program goes on without history.
    bool storeFailed() const { return m_storeFailed; }
    QString storeError() const { return m_storeError; }

private:
    CVPresenter *m_presenter;
    std::function<std::optional<QString>()> m_libraryID;
    std::unique_ptr<CVSpanHistoryModel> m_model;
    std::unique_ptr<CVSpanHistoryStore> m_store;
    std::unique_ptr<CVSpanHistoryContext> m_context;
    bool m_storeFailed = false;
    QString m_storeError;
};
