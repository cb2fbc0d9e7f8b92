#pragma once

#include "CVTestHome.h"

#include <QStringList>

#include <memory>

class CVSettings;

// What every test that touches the system needs around it: a fresh home, settings in it, the
// log captured, the Trash of the home (and of the listed roots) alone looked into. Going away,
// it puts everything back: faults injected are cleared, mounts made for the test detached.
class CVTestEnvironment {
public:
    CVTestEnvironment();
    ~CVTestEnvironment();
    CVTestEnvironment(const CVTestEnvironment &) = delete;
    CVTestEnvironment &operator=(const CVTestEnvironment &) = delete;

    QString path() const { return home.path(); }
    QString filePath(const QString &relative) const { return home.filePath(relative); }
    // The user's settings in the home, made at the first call.
    CVSettings &settings();
    // Detached when the environment goes, however the test ended.
    void unmountAtEnd(const QString &mountPoint) { m_mounts.append(mountPoint); }

    CVTestHome home;
    QStringList log;
    // Folders whose volumes' trash may be looked into: the home's, and any added.
    QStringList trashRoots;

private:
    std::unique_ptr<CVSettings> m_settings;
    QStringList m_mounts;
};
