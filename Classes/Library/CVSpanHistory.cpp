#include "Library/CVSpanHistory.h"

#include "Platform/CVInstallLayout.h"
#include "Platform/CVLog.h"
#include "Platform/CVPresenter.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

const QString kSpan = u"Span"_s;

} // namespace

CVSpanHistoryContext::CVSpanHistoryContext(CVSpanHistoryStore *store)
    : m_store(store)
{
}

void CVSpanHistoryContext::load()
{
    if (m_loaded)
        return;
    m_loaded = true;
    if (m_store && m_store->isOpen() && !m_store->fetchAll(m_records))
        CVLog::log(m_store->errorString());
}

std::vector<CVSpanRecord *> CVSpanHistoryContext::fetchAll()
{
    load();
    std::vector<CVSpanRecord *> all;
    all.reserve(m_records.size());
    for (CVSpanRecord &r : m_records)
        all.push_back(&r);
    return all;
}

CVSpanRecord *CVSpanHistoryContext::fetchLast(const QString &persistentID)
{
    load();
    for (auto it = m_records.rbegin(); it != m_records.rend(); ++it)
        if (it->text(CVSpanAttr::PersistentID) == persistentID)
            return &*it;
    return nullptr;
}

CVSpanRecord &CVSpanHistoryContext::insertRecord()
{
    load();
    return m_records.emplace_back();
}

bool CVSpanHistoryContext::hasChanges() const
{
    return std::any_of(m_records.cbegin(), m_records.cend(), [](const CVSpanRecord &r) { return r.isChanged(); });
}

bool CVSpanHistoryContext::save(QString *error)
{
    std::vector<CVSpanRecord *> changed;
    for (CVSpanRecord &r : m_records)
        if (r.isChanged())
            changed.push_back(&r);
    if (changed.empty())
        return true;
    if (!m_store || !m_store->isOpen()) {
        // Changes that cannot be stored are not "saved": a run must not act as if they were.
        if (error)
            *error = m_store && !m_store->errorString().isEmpty() ? m_store->errorString()
                                                                  : u"The span history is not open."_s;
        return false;
    }
    if (m_store->save(changed))
        return true;
    if (error)
        *error = m_store->errorString();
    return false;
}

CVSpanHistory::CVSpanHistory(CVPresenter *presenter)
    : m_presenter(presenter)
{
}

CVSpanHistory::~CVSpanHistory() = default;

QString CVSpanHistory::applicationSupportFolder()
{
    return CVInstallLayout::supportFolder();
}

const CVSpanHistoryModel *CVSpanHistory::managedObjectModel(const QString &name)
{
    if (name != kSpan)
        return nullptr;
    if (!m_model)
        m_model = std::make_unique<CVSpanHistoryModel>(
            CVSpanHistoryModel { u"Tracks"_s, CVSpanHistoryStore::kSchemaVersion });
    return m_model.get();
}

CVSpanHistoryStore *CVSpanHistory::persistentStoreCoordinator(const QString &name)
{
    if (name != kSpan)
        return nullptr;
    if (m_store)
        return m_store.get();
    if (!m_libraryID || !m_libraryID()) {
        CVLog::log(u"No iTunes Persistent ID"_s);
        return nullptr;
    }
    const QString folder = applicationSupportFolder();
    if (!QDir(folder).exists()) {
        QDir().mkpath(folder);
        // The history says where every file of the user lies: the user's eyes only.
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    const QString path = folder + u"/SpanRestoreHistory.cvcddb"_s;
    const QString oldPath = folder + u"/SpannedItemHistory.cvcddb"_s;
    if (QFile::exists(oldPath) && !QFile::exists(path))
        QFile::rename(oldPath, path);

    m_store = std::make_unique<CVSpanHistoryStore>();
    if (!m_store->open(path)) {
        m_storeFailed = true;
        m_storeError = m_store->errorString();
        CVLog::log(m_storeError);
        if (m_presenter)
            m_presenter->presentError(u"The span history could not be opened."_s,
                m_storeError + u"\n\nCorvana goes on without it; the file is left as it is."_s);
    }
    return m_store.get();
}

CVSpanHistoryContext *CVSpanHistory::managedObjectContext(const QString &name)
{
    if (name != kSpan)
        return nullptr;
    if (m_context)
        return m_context.get();
    CVSpanHistoryStore *store = persistentStoreCoordinator(name);
    if (!store)
        return nullptr;
    m_context = std::make_unique<CVSpanHistoryContext>(store);
    return m_context.get();
}

bool CVSpanHistory::save(QString *error)
{
    if (!m_context || !m_context->hasChanges())
        return true;
    return m_context->save(error);
}

bool CVSpanHistory::saveAction()
{
    QString error;
    if (save(&error))
        return true;
    CVLog::log(error);
    if (m_presenter)
        m_presenter->presentError(u"The span history could not be saved."_s, error);
    return false;
}

bool CVSpanHistory::checkWritable(QString *error)
{
    const auto refuse = [&](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    CVSpanHistoryStore *store = persistentStoreCoordinator(kSpan);
    if (!store)
        return refuse(u"The span history cannot be opened: the library has no persistent ID."_s);
    if (m_storeFailed || !store->isOpen())
        return refuse(u"The span history cannot be opened: %1"_s.arg(m_storeError));
    if (!store->checkWritable())
        return refuse(store->errorString());
    return true;
}
