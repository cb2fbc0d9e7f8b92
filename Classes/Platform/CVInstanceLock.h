#pragma once

#include <QLockFile>
#include <QString>

#include <memory>

// One running Corvana per user: the window and the command-line tool take the same lock, so
// that the two never write the span history at once. A lock left by a killed process is
// taken over. While held, the program also owns "org.corvana.Corvana" on the session bus (when
// there is one), which is how other programs see that Corvana runs.
class CVInstanceLock {
public:
    static constexpr auto BusName = "org.corvana.Corvana";

    // $XDG_RUNTIME_DIR/Corvana.lock, or the temporary folder's.
    static QString defaultPath();

    explicit CVInstanceLock(const QString &path = defaultPath());
    ~CVInstanceLock();
    bool tryLock();

private:
    std::unique_ptr<QLockFile> m_lock;
    bool m_ownsBusName = false;
};
