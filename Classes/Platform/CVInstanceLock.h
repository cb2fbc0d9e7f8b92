#pragma once

#include <QLockFile>
#include <QString>

#include <memory>

// One running Corvana per user: the window and the command-line tool take the same lock, so
// that the two never write the span history at once. A lock left by a killed process is
// taken over.
class CVInstanceLock {
public:
    // $XDG_RUNTIME_DIR/Corvana.lock, or the temporary folder's.
    static QString defaultPath();

    explicit CVInstanceLock(const QString &path = defaultPath());
    bool tryLock();

private:
    std::unique_ptr<QLockFile> m_lock;
};
