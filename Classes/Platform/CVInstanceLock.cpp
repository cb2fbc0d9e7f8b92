#include "Platform/CVInstanceLock.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
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

CVInstanceLock::~CVInstanceLock()
{
    if (m_ownsBusName)
        QDBusConnection::sessionBus().unregisterService(QString::fromLatin1(BusName));
}

bool CVInstanceLock::tryLock()
{
    if (!m_lock->tryLock(0))
        return false;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return true;
    const auto reply = bus.interface()->registerService(QString::fromLatin1(BusName),
        QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceNotRegistered) {
        // Another Corvana on this session keeps its lock elsewhere (another runtime folder).
        m_lock->unlock();
        return false;
    }
    m_ownsBusName = reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
    return true;
}
