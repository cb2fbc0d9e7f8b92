#include "Platform/CVFaultInjection.h"

#include <QHash>
#include <QMutex>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPoints = int(CVFaultInjection::Point::BeforeTrash) + 1;

struct Fault {
    int remaining = 0; // calls until the failure; 0 is none
    int error = 0;
    bool repeat = false;
};

QMutex mutex;
std::array<Fault, kPoints> faults;
std::array<std::function<void(const QString &)>, kPoints> actions;
// Most processes never have a fault: one relaxed load is all they pay per call.
std::atomic<bool> armed { false };

const QHash<QString, CVFaultInjection::Point> &pointNames()
{
    using P = CVFaultInjection::Point;
    static const QHash<QString, P> names { { u"copy-open"_s, P::CopyOpen }, { u"copy-write"_s, P::CopyWrite },
        { u"copy-fsync"_s, P::CopyFsync }, { u"copy-rename"_s, P::CopyRename }, { u"folder-create"_s, P::FolderCreate },
        { u"trash-rename"_s, P::TrashRename }, { u"history-commit"_s, P::HistoryCommit },
        { u"library-rename"_s, P::LibraryRename }, { u"filesystem-sync"_s, P::FileSystemSync },
        { u"trash-info-sync"_s, P::TrashInfoSync }, { u"before-trash"_s, P::BeforeTrash } };
    return names;
}

const QHash<QString, int> &errorNames()
{
    static const QHash<QString, int> names { { u"ENOSPC"_s, ENOSPC }, { u"EIO"_s, EIO }, { u"EACCES"_s, EACCES },
        { u"EPERM"_s, EPERM }, { u"EROFS"_s, EROFS }, { u"ENODEV"_s, ENODEV }, { u"ENOENT"_s, ENOENT },
        { u"EDQUOT"_s, EDQUOT }, { u"EXDEV"_s, EXDEV }, { u"EINVAL"_s, EINVAL }, { u"ENOTCONN"_s, ENOTCONN },
        { u"KILL"_s, CVFaultInjection::Kill }, { u"SKIP"_s, CVFaultInjection::Skip } };
    return names;
}

void arm(CVFaultInjection::Point point, int nth, int error, bool repeat)
{
    QMutexLocker lock(&mutex);
    faults[std::size_t(point)] = { qMax(1, nth), error, repeat };
    armed = true;
}

bool parseFaults(const QString &text)
{
    // point=N:ERRNO, or point=N+:ERRNO to keep failing from the Nth call on.
    for (const QString &item : text.split(u',', Qt::SkipEmptyParts)) {
        const qsizetype equals = item.indexOf(u'=');
        const qsizetype colon = item.indexOf(u':');
        if (equals < 0 || colon < equals)
            return false;
        const auto point = pointNames().constFind(item.left(equals).trimmed());
        QString count = item.mid(equals + 1, colon - equals - 1).trimmed();
        const bool repeat = count.endsWith(u'+');
        if (repeat)
            count.chop(1);
        bool ok = false;
        const int nth = count.toInt(&ok);
        const auto error = errorNames().constFind(item.mid(colon + 1).trimmed());
        if (point == pointNames().cend() || !ok || nth < 1 || error == errorNames().cend())
            return false;
        arm(*point, nth, *error, repeat);
    }
    return true;
}

void readEnvironmentOnce()
{
    static const bool read = [] {
        const char *text = std::getenv("CORVANA_FAULT_INJECTION");
        if (text && *text && !parseFaults(QString::fromLocal8Bit(text)))
            std::fprintf(stderr, "Corvana: CORVANA_FAULT_INJECTION cannot be read: %s\n", text);
        return true;
    }();
    Q_UNUSED(read)
}

} // namespace

int CVFaultInjection::fault(Point point)
{
    readEnvironmentOnce();
    if (!armed.load(std::memory_order_relaxed))
        return 0;
    QMutexLocker lock(&mutex);
    Fault &f = faults[std::size_t(point)];
    if (f.remaining == 0)
        return 0;
    if (f.remaining > 1) {
        --f.remaining;
        return 0;
    }
    const int error = f.error;
    if (!f.repeat)
        f = {};
    if (error == Kill)
        ::raise(SIGKILL); // a crash at exactly this point, for the tests of recovery
    return error;
}

int CVFaultInjection::fault(Point point, const QString &path)
{
    readEnvironmentOnce();
    if (!armed.load(std::memory_order_relaxed))
        return 0;
    std::function<void(const QString &)> action;
    {
        QMutexLocker lock(&mutex);
        action = actions[std::size_t(point)];
    }
    if (action)
        action(path);
    return fault(point);
}

void CVFaultInjection::setAction(Point point, std::function<void(const QString &path)> action)
{
    readEnvironmentOnce();
    QMutexLocker lock(&mutex);
    actions[std::size_t(point)] = std::move(action);
    armed = true;
}

void CVFaultInjection::set(Point point, int nth, int error, bool repeat)
{
    readEnvironmentOnce();
    arm(point, nth, error, repeat);
}

void CVFaultInjection::clear()
{
    readEnvironmentOnce();
    QMutexLocker lock(&mutex);
    faults = {};
    actions = {};
    armed = false;
}

bool CVFaultInjection::parse(const QString &text)
{
    readEnvironmentOnce();
    return parseFaults(text);
}
