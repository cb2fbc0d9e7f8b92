#include "CVSyscallTrace.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// strace prints names as C strings: quotes, backslashes and unprintable bytes escaped.
QString unescape(const QByteArray &text)
{
    QByteArray out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c != '\\' || i + 1 >= text.size()) {
            out.append(c);
            continue;
        }
        const char e = text[++i];
        switch (e) {
        case 'n':
            out.append('\n');
            break;
        case 't':
            out.append('\t');
            break;
        case 'r':
            out.append('\r');
            break;
        case 'v':
            out.append('\v');
            break;
        case 'f':
            out.append('\f');
            break;
        case 'x': {
            const QByteArray hex = text.mid(i + 1, 2);
            out.append(char(hex.toInt(nullptr, 16)));
            i += 2;
            break;
        }
        default:
            if (e >= '0' && e <= '7') {
                int value = 0;
                int digits = 0;
                while (digits < 3 && i < text.size() && text[i] >= '0' && text[i] <= '7') {
                    value = value * 8 + (text[i] - '0');
                    ++i;
                    ++digits;
                }
                --i;
                out.append(char(value));
            } else {
                out.append(e);
            }
        }
    }
    return QFile::decodeName(out);
}

QString withoutDeleted(QString path)
{
    if (path.endsWith(u" (deleted)"_s))
        path.chop(10);
    return path;
}

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash <= 0 ? u"/"_s : path.left(slash);
}

bool inside(const QString &path, const QString &folder)
{
    return path == folder || path.startsWith(folder.endsWith(u'/') ? folder : QString(folder + u'/'));
}

// The arguments' quoted strings and descriptor paths, in order of appearance.
void scan(const QByteArray &args, CVSyscallTrace::Call &call)
{
    QString lastDescriptor;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const char c = args[i];
        if (c == '"') {
            QByteArray raw;
            ++i;
            while (i < args.size() && args[i] != '"') {
                if (args[i] == '\\' && i + 1 < args.size())
                    raw.append(args[i++]);
                raw.append(args[i++]);
            }
            QString path = unescape(raw);
            // A name relative to a folder descriptor (AT_FDCWD</cwd> or a folder's).
            if (!path.startsWith(u'/') && !lastDescriptor.isEmpty())
                path = lastDescriptor + u'/' + path;
            call.quoted.append(path);
            call.paths.append(path);
        } else if (c == '<' && i > 0 && (QChar::fromLatin1(args[i - 1]).isDigit() || args[i - 1] == 'D')) {
            // "7</path>" or "AT_FDCWD</cwd>"; the path ends at the '>' before a separator.
            qsizetype end = i + 1;
            while (end < args.size()
                && !(args[end] == '>'
                    && (end + 1 == args.size() || args[end + 1] == ',' || args[end + 1] == ')'
                        || args[end + 1] == ' ')))
                ++end;
            const QString path = withoutDeleted(unescape(args.mid(i + 1, end - i - 1)));
            lastDescriptor = path;
            call.descriptors.append(path);
            call.paths.append(path);
            i = end;
        }
    }
}

} // namespace

bool CVSyscallTrace::available(QString *why)
{
    const QString strace = QStandardPaths::findExecutable(u"strace"_s);
    if (strace.isEmpty()) {
        if (why)
            *why = u"strace is not installed (Debian package strace)"_s;
        return false;
    }
    // Tracing needs ptrace, which a container or a Yama setting can refuse.
    QProcess probe;
    probe.start(strace, { u"-f"_s, u"-qq"_s, u"-o"_s, u"/dev/null"_s, u"true"_s });
    if (!probe.waitForFinished(30000) || probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0) {
        if (why)
            *why = u"strace cannot trace here: "_s + QString::fromLocal8Bit(probe.readAllStandardError()).trimmed();
        return false;
    }
    return true;
}

QStringList CVSyscallTrace::command(const QString &file, const QString &program, const QStringList &arguments)
{
    return QStringList { u"-f"_s, u"-y"_s, u"-qq"_s, u"-s"_s, u"0"_s, u"-o"_s, file, u"-e"_s,
        u"trace=open,openat,creat,mkdir,mkdirat,rename,renameat,renameat2,link,linkat,symlink,symlinkat,"
        "unlink,unlinkat,rmdir,write,pwrite64,writev,pwritev,pwritev2,ftruncate,fallocate,copy_file_range,"
        "sendfile,ioctl,fsync,fdatasync,syncfs,sync"_s,
        program }
    + arguments;
}

bool CVSyscallTrace::read(const QString &file)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    return parse(f.readAll());
}

bool CVSyscallTrace::parse(const QByteArray &text)
{
    static const QRegularExpression resumed(u"^<\\.\\.\\. [a-z0-9_]+ resumed>"_s);
    QHash<int, QByteArray> unfinished;
    for (QByteArray line : text.split('\n')) {
        line = line.trimmed();
        const qsizetype space = line.indexOf(' ');
        if (line.isEmpty() || space < 0)
            continue;
        bool ok = false;
        const int pid = line.left(space).toInt(&ok);
        if (!ok)
            return false;
        QByteArray rest = line.mid(space + 1).trimmed();
        if (rest.startsWith("+++") || rest.startsWith("---"))
            continue;
        if (rest.startsWith("<... ")) {
            const QRegularExpressionMatch m = resumed.match(QString::fromLatin1(rest));
            if (!m.hasMatch())
                return false;
            rest = unfinished.take(pid) + rest.mid(m.capturedLength());
        }
        if (rest.endsWith("<unfinished ...>")) {
            unfinished[pid] = rest.left(rest.size() - 16).trimmed();
            continue;
        }
        const qsizetype open = rest.indexOf('(');
        const qsizetype equals = rest.lastIndexOf(") = ");
        if (open <= 0 || equals < open)
            continue; // a call that never returned (the process was killed)
        Call call;
        call.pid = pid;
        call.name = QString::fromLatin1(rest.left(open));
        const QByteArray args = rest.mid(open + 1, equals - open - 1);
        call.text = QString::fromLatin1(args);
        scan(args, call);
        QByteArray result = rest.mid(equals + 4);
        const qsizetype end = result.indexOf('<') >= 0 ? result.indexOf('<') : result.indexOf(' ');
        call.result = (end >= 0 ? result.left(end) : result).toLongLong(&ok);
        if (!ok)
            call.result = -1;
        // "= 7</path>": the file the call opened.
        if (const qsizetype lt = result.indexOf('<'); lt >= 0 && result.endsWith('>'))
            call.paths.append(withoutDeleted(unescape(result.mid(lt + 1, result.size() - lt - 2))));
        m_calls.append(call);
    }
    return true;
}

quint64 CVSyscallTrace::deviceOf(const QString &path) const
{
    if (m_deviceOf)
        return m_deviceOf(path);
    const auto known = m_devices.constFind(path);
    if (known != m_devices.cend())
        return *known;
    QString probe = path;
    struct stat info { };
    while (::stat(QFile::encodeName(probe).constData(), &info) != 0 && probe != u"/"_s)
        probe = parentOf(probe);
    m_devices.insert(path, quint64(info.st_dev));
    return quint64(info.st_dev);
}

bool CVSyscallTrace::inAreas(const QString &path) const
{
    return std::any_of(m_areas.cbegin(), m_areas.cend(), [&](const QString &area) { return inside(path, area); });
}

namespace {

const QRegularExpression &trashFiles()
{
    static const QRegularExpression re(u"^(.*/(?:Trash|\\.Trash-\\d+|\\.Trash/\\d+))/files/([^/]+)$"_s);
    return re;
}

bool isRename(const QString &name)
{
    return name == u"rename"_s || name == u"renameat"_s || name == u"renameat2"_s;
}

} // namespace

QList<std::pair<QString, QString>> CVSyscallTrace::trashMoves() const
{
    QList<std::pair<QString, QString>> moves;
    for (const Call &call : m_calls)
        if (isRename(call.name) && call.result == 0 && call.quoted.size() == 2
            && trashFiles().match(call.quoted[1]).hasMatch())
            moves.append({ call.quoted[0], call.quoted[1] });
    return moves;
}

QStringList CVSyscallTrace::violations() const
{
    // What is written but not yet durable: a file's bytes, or a name in its folder.
    QHash<QString, qsizetype> bytes;
    QHash<QString, qsizetype> names;
    QStringList found;
    const auto dirtyInfo = [&](const QString &path) {
        if (bytes.contains(path))
            return u"its bytes"_s;
        if (names.contains(path))
            return u"its name"_s;
        return QString();
    };
    for (qsizetype i = 0; i < m_calls.size(); ++i) {
        const Call &call = m_calls[i];
        if (call.result < 0)
            continue;
        const QString &n = call.name;
        if (n == u"open"_s || n == u"openat"_s || n == u"creat"_s) {
            const QString path = call.paths.isEmpty() ? QString() : call.paths.constLast();
            if (n == u"creat"_s || call.text.contains(u"O_CREAT"_s))
                names.insert(path, i);
            if (n == u"creat"_s || call.text.contains(u"O_TRUNC"_s))
                bytes.insert(path, i);
        } else if (n == u"mkdir"_s || n == u"mkdirat"_s || n == u"unlink"_s || n == u"unlinkat"_s || n == u"rmdir"_s) {
            if (!call.quoted.isEmpty())
                names.insert(call.quoted.constLast(), i);
        } else if (n == u"link"_s || n == u"linkat"_s || n == u"symlink"_s || n == u"symlinkat"_s) {
            if (!call.quoted.isEmpty())
                names.insert(call.quoted.constLast(), i);
        } else if (isRename(n) && call.quoted.size() == 2) {
            const QString &from = call.quoted[0];
            const QString &to = call.quoted[1];
            const QRegularExpressionMatch trash = trashFiles().match(to);
            if (trash.hasMatch()) {
                // A destructive step: what records it must be on disk now.
                const QString info = trash.captured(1) + u"/info/"_s + trash.captured(2) + u".trashinfo"_s;
                if (const QString why = dirtyInfo(info); !why.isEmpty())
                    found.append(u"call %1: “%2” went into the Trash before its info file “%3” was on disk (%4)"_s.arg(
                        QString::number(i), from, info, why));
                QStringList pending;
                for (auto it = bytes.cbegin(); it != bytes.cend(); ++it)
                    if (inAreas(it.key()))
                        pending.append(u"the bytes of “%1”"_s.arg(it.key()));
                for (auto it = names.cbegin(); it != names.cend(); ++it)
                    if (inAreas(it.key()))
                        pending.append(u"the name “%1”"_s.arg(it.key()));
                pending.sort();
                if (!pending.isEmpty())
                    found.append(u"call %1: “%2” went into the Trash before %3 were on disk"_s.arg(
                        QString::number(i), from, pending.mid(0, 4).join(u", "_s)));
                // The moves themselves are what the records are for, not records.
                continue;
            }
            if (bytes.contains(from))
                bytes.insert(to, bytes.take(from));
            names.insert(from, i);
            names.insert(to, i);
        } else if (n == u"fsync"_s || n == u"fdatasync"_s) {
            if (call.descriptors.isEmpty())
                continue;
            const QString &path = call.descriptors.constFirst();
            bytes.remove(path);
            // A folder's sync makes the names in it durable.
            for (auto it = names.begin(); it != names.end();)
                it = parentOf(it.key()) == path ? names.erase(it) : std::next(it);
        } else if (n == u"syncfs"_s) {
            if (call.descriptors.isEmpty())
                continue;
            const quint64 device = deviceOf(call.descriptors.constFirst());
            for (auto it = bytes.begin(); it != bytes.end();)
                it = deviceOf(it.key()) == device ? bytes.erase(it) : std::next(it);
            for (auto it = names.begin(); it != names.end();)
                it = deviceOf(it.key()) == device ? names.erase(it) : std::next(it);
        } else if (n == u"sync"_s) {
            bytes.clear();
            names.clear();
        } else if (!call.descriptors.isEmpty()) {
            // Writes of every kind; for copy_file_range and sendfile the second descriptor is
            // the source, so the first one written to is the destination (clone: the first).
            const QString &path = n == u"copy_file_range"_s && call.descriptors.size() >= 2
                ? call.descriptors[1]
                : call.descriptors.constFirst();
            if (n == u"ioctl"_s && !call.text.contains(u"CLONE"_s))
                continue;
            bytes.insert(path, i);
        }
    }
    return found;
}
