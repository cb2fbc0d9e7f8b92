#include "CVTestEnvironment.h"

#include "Platform/CVFaultInjection.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"
#include "Platform/CVTrash.h"

#include <QFile>

#include <sys/mount.h>

CVTestEnvironment::CVTestEnvironment()
    : trashRoots { home.path() }
{
    CVLog::setSink([this](const QString &line) { log.append(line); });
    // The machine's own volumes and their trash are never looked into.
    CVTrash::setMountPointFilter([this](const QString &point) {
        for (const QString &root : std::as_const(trashRoots))
            if (point == root || point.startsWith(root + u'/'))
                return true;
        return false;
    });
}

CVTestEnvironment::~CVTestEnvironment()
{
    CVFaultInjection::clear();
    for (const QString &mount : std::as_const(m_mounts))
        ::umount2(QFile::encodeName(mount).constData(), MNT_DETACH);
    CVTrash::setMountPointFilter({});
    CVLog::setSink({});
    m_settings.reset();
}

CVSettings &CVTestEnvironment::settings()
{
    if (!m_settings)
        m_settings = std::make_unique<CVSettings>();
    return *m_settings;
}
