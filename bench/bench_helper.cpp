// Corvana Helper's costs: resident memory with a large span history, the time from a drive's
// mount to the links of its dependent tracks, and wake-ups while nothing changes. Runs the real
// helper on the session bus it is given (see bench/helper-benchmark), in a mount namespace of
// its own, with the drive a tmpfs moved into place.
#include "Library/CVSpanHistoryStore.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

qint64 statusField(qint64 pid, const char *field)
{
    QFile f(u"/proc/%1/status"_s.arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(qsizetype(strlen(field))).trimmed().split(' ').first().toLongLong();
    return -1;
}

qint64 contextSwitches(qint64 pid)
{
    return statusField(pid, "voluntary_ctxt_switches:") + statusField(pid, "nonvoluntary_ctxt_switches:");
}

QVariantMap helperStatus()
{
    QDBusMessage get = QDBusMessage::createMethodCall(u"org.corvana.CorvanaHelper"_s, u"/org/corvana/CorvanaHelper"_s,
        u"org.freedesktop.DBus.Properties"_s, u"GetAll"_s);
    get << u"org.corvana.CorvanaHelper1"_s;
    const QDBusReply<QVariantMap> reply = QDBusConnection::sessionBus().call(get, QDBus::Block, 120000);
    return reply.isValid() ? reply.value() : QVariantMap();
}

bool writeHistory(const QString &store, int records, int dependent, const QString &home)
{
    QDir().mkpath(QFileInfo(store).absolutePath());
    CVSpanHistoryStore history;
    if (!history.open(store))
        return false;
    std::vector<CVSpanRecord> rows(static_cast<std::size_t>(records));
    std::vector<CVSpanRecord *> all;
    for (int i = 0; i < records; ++i) {
        CVSpanRecord &r = rows[std::size_t(i)];
        const bool isDependent = i < dependent;
        const QString tail = u"Artist %1/Album %2/%3 A Song Title.mp3"_s.arg(i % 700).arg(i % 7000).arg(i);
        const QString original = home + u"/Music/iTunes/iTunes Media/Music/"_s + tail;
        const QString span = (isDependent ? u"/mnt/Drive/Music/"_s : u"/mnt/Other/Music/"_s) + tail;
        r.setValue(CVSpanAttr::PersistentID, QString::number(0x10000000'00000000LL + i, 16).toUpper());
        r.setValue(CVSpanAttr::LibraryPersistentID, u"0123456789ABCDEF"_s);
        r.setValue(CVSpanAttr::TrackID, i + 1);
        r.setValue(CVSpanAttr::Name, u"%1 A Song Title"_s.arg(i));
        r.setValue(CVSpanAttr::Artist, u"Artist %1"_s.arg(i % 700));
        r.setValue(CVSpanAttr::Album, u"Album %1"_s.arg(i % 7000));
        r.setValue(CVSpanAttr::Kind, u"MPEG audio file"_s);
        r.setValue(CVSpanAttr::MediaType, u"Music"_s);
        r.setValue(CVSpanAttr::Size, 5'000'000.0);
        r.setValue(CVSpanAttr::TotalTime, 240'000.0);
        r.setValue(CVSpanAttr::ITunesLocation, isDependent ? original : span);
        r.setValue(CVSpanAttr::OriginalLocation, original);
        r.setValue(CVSpanAttr::SpanLocation, span);
        r.setValue(CVSpanAttr::BaseSpanPath, isDependent ? u"/mnt/Drive"_s : u"/mnt/Other"_s);
        r.setValue(CVSpanAttr::LastSpanDate, 1.7e9);
        r.setValue(CVSpanAttr::SymSpan, isDependent);
        r.setValue(CVSpanAttr::FullSpan, !isDependent);
        r.setValue(CVSpanAttr::ItemIsRestored, false);
        r.setValue(CVSpanAttr::RemovedFromITunes, false);
        r.setValue(CVSpanAttr::NeedsVerification, false);
        all.push_back(&r);
    }
    return history.save(all);
}

} // namespace

int main(int argc, char *argv[])
{
    // Before any thread: a mount namespace of our own, with a tmpfs over /mnt.
    const bool mounts = ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && ::mount("bench", "/mnt", "tmpfs", 0, "size=256m") == 0;
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({ u"helper"_s, u"The corvana-helper program."_s, u"PATH"_s });
    parser.addOption({ u"records"_s, u"Records in the span history."_s, u"N"_s, u"100000"_s });
    parser.addOption({ u"dependent"_s, u"Dependent tracks among them, on the drive."_s, u"N"_s, u"10000"_s });
    parser.addOption({ u"idle-seconds"_s, u"How long to count wake-ups while idle."_s, u"S"_s, u"60"_s });
    parser.addOption({ u"gui"_s, u"Run the helper with a (offscreen) display, as on a desktop."_s });
    parser.process(app);
    if (!mounts) {
        std::fprintf(stderr, "bench_helper needs to mount (run as root): %s\n", strerror(errno));
        return 2;
    }
    if (!QDBusConnection::sessionBus().isConnected()) {
        std::fprintf(stderr, "bench_helper needs a session bus (run it through dbus-run-session)\n");
        return 2;
    }
    const int records = parser.value(u"records"_s).toInt();
    const int dependent = parser.value(u"dependent"_s).toInt();

    // Not under /mnt: a folder there counts as a drive of its own.
    QTemporaryDir home(QDir::tempPath() + u"/corvana-helper-bench-XXXXXX"_s);
    for (const auto &[name, sub] : { std::pair { "HOME", "" }, { "XDG_CONFIG_HOME", "/.config" },
             { "XDG_DATA_HOME", "/.local/share" }, { "XDG_RUNTIME_DIR", "/.runtime" } }) {
        QDir().mkpath(home.path() + QLatin1StringView(sub));
        QFile::setPermissions(
            home.path() + QLatin1StringView(sub), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv(name, QFile::encodeName(home.path() + QLatin1StringView(sub)));
    }
    QDir().mkpath(home.path() + u"/.config/Corvana"_s);
    QFile settings(home.path() + u"/.config/Corvana/Corvana Helper.conf"_s);
    if (!settings.open(QIODevice::WriteOnly))
        return 1;
    settings.write("[General]\nCVHAllowedToAlwaysRun=1\nCVHLoginItemAlertSupress=true\n");
    settings.close();

    QElapsedTimer t;
    t.start();
    if (!writeHistory(
            home.path() + u"/.local/share/Corvana/SpanRestoreHistory.cvcddb"_s, records, dependent, home.path()))
        return 1;
    std::printf("history: %d records, %d dependent, written in %.1f s\n", records, dependent, t.elapsed() / 1000.0);

    // The drive's files, ready at a staging point.
    QDir().mkpath(u"/mnt/staging"_s);
    if (::mount("drive", "/mnt/staging", "tmpfs", 0, "size=128m") != 0)
        return 1;
    for (int i = 0; i < dependent; ++i) {
        const QString file
            = u"/mnt/staging/Music/Artist %1/Album %2/%3 A Song Title.mp3"_s.arg(i % 700).arg(i % 7000).arg(i);
        QDir().mkpath(QFileInfo(file).absolutePath());
        QFile f(file);
        if (!f.open(QIODevice::WriteOnly))
            return 1;
        f.write("x");
    }
    QDir().mkpath(u"/mnt/Drive"_s);

    QProcess helper;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(u"DISPLAY"_s);
    env.remove(u"WAYLAND_DISPLAY"_s);
    if (parser.isSet(u"gui"_s))
        env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    else
        env.remove(u"QT_QPA_PLATFORM"_s);
    helper.setProcessEnvironment(env);
    helper.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    t.restart();
    helper.start(parser.value(u"helper"_s), QStringList());
    if (!helper.waitForStarted())
        return 1;
    while (!QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.corvana.CorvanaHelper"_s)) {
        if (helper.state() == QProcess::NotRunning)
            return 1;
        QThread::msleep(5);
    }
    QVariantMap status = helperStatus();
    const qint64 pid = helper.processId();
    std::printf("start: first pass done %.0f ms after launch; %s\n", double(t.elapsed()),
        qPrintable(status.value(u"Status"_s).toString()));
    std::printf("memory after start: resident %.1f MB (%.1f MB of it the heap), peak %.1f MB\n",
        statusField(pid, "VmRSS:") / 1024.0, statusField(pid, "RssAnon:") / 1024.0,
        statusField(pid, "VmHWM:") / 1024.0);

    // The drive appears; the last dependent track's link is the last one made.
    const QByteArray lastLink = QFile::encodeName(home.path()
        + u"/Music/iTunes/iTunes Media/Music/Artist %1/Album %2/%3 A Song Title.mp3"_s.arg((dependent - 1) % 700)
              .arg((dependent - 1) % 7000)
              .arg(dependent - 1));
    t.restart();
    if (::mount("/mnt/staging", "/mnt/Drive", nullptr, MS_MOVE, nullptr) != 0)
        return 1;
    struct stat info { };
    while (::lstat(lastLink.constData(), &info) != 0) {
        if (t.elapsed() > 120000) {
            std::fprintf(stderr, "no link after two minutes: %s\n", lastLink.constData());
            return 1;
        }
        QThread::msleep(1);
    }
    const double mountToLinks = double(t.nsecsElapsed()) / 1e6;
    status = helperStatus();
    std::printf("mount to links: %.0f ms for %u links (%s)\n", mountToLinks, status.value(u"LinksMade"_s).toUInt(),
        qPrintable(status.value(u"Status"_s).toString()));
    std::printf("memory after the links: resident %.1f MB, peak %.1f MB\n", statusField(pid, "VmRSS:") / 1024.0,
        statusField(pid, "VmHWM:") / 1024.0);

    const int idle = parser.value(u"idle-seconds"_s).toInt();
    if (idle > 0) {
        QThread::sleep(1);
        const qint64 before = contextSwitches(pid);
        QThread::sleep(idle);
        const qint64 after = contextSwitches(pid);
        std::printf("idle: %lld wake-ups (context switches) in %d s\n", after - before, idle);
    }
    QDBusMessage quit = QDBusMessage::createMethodCall(
        u"org.corvana.CorvanaHelper"_s, u"/org/corvana/CorvanaHelper"_s, u"org.corvana.CorvanaHelper1"_s, u"Quit"_s);
    QDBusConnection::sessionBus().call(quit);
    helper.waitForFinished();
    ::umount2("/mnt/Drive", MNT_DETACH);
    return 0;
}
