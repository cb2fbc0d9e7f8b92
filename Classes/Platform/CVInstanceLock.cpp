#include "Platform/CVInstanceLock.h"

#include <QDir>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

QString CVInstanceLock::defaultPath()
{
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    return folder + u"/Corvana.lock"_s;
}

CVInstanceLock::CVInstanceLock(const QString &path)
    : m_lock(std::make_unique<QLockFile>(path))
{
    // Never stale by age: only a lock whose process is gone is taken over.
    m_lock->setStaleLockTime(0);
}

bool CVInstanceLock::tryLock()
{
    return m_lock->tryLock(0);
}
