#include "Library/CVLibraryFileRewriter.h"

#include "Library/CVFileURL.h"
#include "Library/CVPlistReader.h"
#include "Platform/CVFaultInjection.h"
#include "Platform/CVFullIO.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;
using Token = CVPlistReader::Token;

namespace {

using CVLibraryFileRewriter::Edit;

QString systemError(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

bool syncFolder(const QString &folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

// Reads the value after a key and steps over it when it is a container.
bool skipNextValue(CVPlistReader &reader)
{
    const Token token = reader.next();
    return token != Token::Error && token != Token::EndDocument && reader.skipValue();
}

// Walks the Tracks dictionary and plans one edit per changed track.
bool planEdits(QByteArrayView document, const QHash<QString, QString> &locations, std::vector<Edit> &edits,
    QSet<QString> &found, QString &error)
{
    CVPlistReader reader(document);
    const auto fail = [&] {
        error = reader.hasError() ? reader.errorDescription() : u"the library file is not laid out as expected"_s;
        return false;
    };
    if (reader.next() != Token::DictBegin)
        return fail();
    // Find "Tracks" in the top dictionary; the rest of the file is copied as it is.
    for (;;) {
        const Token token = reader.next();
        if (token == Token::DictEnd)
            return true;
        if (token != Token::Key)
            return fail();
        if (reader.text() == "Tracks")
            break;
        if (!skipNextValue(reader))
            return fail();
    }
    if (reader.next() != Token::DictBegin)
        return fail();
    for (;;) {
        Token token = reader.next();
        if (token == Token::DictEnd)
            return true;
        if (token != Token::Key)
            return fail();
        token = reader.next();
        if (token != Token::DictBegin) {
            if (!reader.skipValue())
                return fail();
            continue;
        }
        QString pid;
        qint64 locationStart = -1;
        qint64 locationEnd = -1;
        for (;;) {
            token = reader.next();
            if (token == Token::DictEnd)
                break;
            if (token != Token::Key)
                return fail();
            const std::string_view key = reader.text();
            const bool isPid = key == "Persistent ID";
            const bool isLocation = key == "Location";
            token = reader.next();
            if (token == Token::String && isPid) {
                pid = reader.string();
            } else if (token == Token::String && isLocation) {
                locationStart = reader.elementStart();
                locationEnd = reader.elementEnd();
            } else if (token == Token::Error || token == Token::EndDocument || !reader.skipValue()) {
                return fail();
            }
        }
        const auto change = locations.constFind(pid);
        if (pid.isEmpty() || change == locations.cend())
            continue;
        found.insert(pid);
        const QByteArray element = "<string>" + CVFileURL::fileURLFromPath(*change) + "</string>";
        if (locationStart >= 0)
            edits.push_back({ locationStart, locationEnd, element });
        else
            edits.push_back({ reader.elementStart(), reader.elementStart(), "<key>Location</key>" + element });
    }
}

// A backup of the file as it was: a second name for the same bytes when the filesystem allows
// it (the old file is replaced by a rename, never written to), else a copy.
bool makeBackup(const QString &libraryPath, const char *data, qint64 size, QString &error)
{
    const QString backup = CVLibraryFileRewriter::backupPath(libraryPath);
    const QByteArray staging = QFile::encodeName(backup + u".new"_s);
    ::unlink(staging.constData());
    if (::link(QFile::encodeName(libraryPath).constData(), staging.constData()) != 0) {
        const int fd = ::open(staging.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        const bool ok = fd >= 0 && CVFullIO::writeFully(fd, data, size_t(size)) && ::fsync(fd) == 0;
        const int saved = errno;
        if (fd >= 0)
            ::close(fd);
        if (!ok) {
            ::unlink(staging.constData());
            error = u"the backup could not be written: %1"_s.arg(systemError(saved));
            return false;
        }
    }
    if (::rename(staging.constData(), QFile::encodeName(backup).constData()) != 0) {
        error = u"the backup could not be written: %1"_s.arg(systemError(errno));
        ::unlink(staging.constData());
        return false;
    }
    return true;
}

} // namespace

QString CVLibraryFileRewriter::backupPath(const QString &libraryPath)
{
    return libraryPath + u".corvana-backup"_s;
}

CVLibraryFileRewriter::Result CVLibraryFileRewriter::applyLocations(
    const QString &libraryPath, const QHash<QString, QString> &locations)
{
    Result result;
    QFile file(libraryPath);
    if (!file.open(QIODevice::ReadOnly)) {
        result.error = u"The library file “%1” cannot be opened: %2"_s.arg(libraryPath, file.errorString());
        return result;
    }
    const qint64 size = file.size();
    const uchar *mapped = size > 0 ? file.map(0, size) : nullptr;
    if (!mapped) {
        result.error = u"The library file “%1” cannot be read."_s.arg(libraryPath);
        return result;
    }
    const char *data = reinterpret_cast<const char *>(mapped);

    std::vector<Edit> edits;
    QSet<QString> found;
    QString planError;
    if (!planEdits(QByteArrayView(data, size), locations, edits, found, planError)) {
        result.error = u"The library file “%1” cannot be updated: %2"_s.arg(libraryPath, planError);
        return result;
    }
    for (auto it = locations.cbegin(); it != locations.cend(); ++it) {
        if (!found.contains(it.key()))
            result.unknown.append(it.key());
    }
    if (edits.empty()) {
        result.ok = true;
        return result;
    }
    std::sort(edits.begin(), edits.end(), [](const Edit &a, const Edit &b) { return a.start < b.start; });
    QString error;
    if (!replaceWithEdits(libraryPath, QByteArrayView(data, size), edits, error)) {
        result.error = u"The library file “%1” %2"_s.arg(libraryPath, error);
        return result;
    }
    result.ok = true;
    result.applied = int(edits.size());
    return result;
}

bool CVLibraryFileRewriter::replaceWithEdits(
    const QString &path, QByteArrayView original, const std::vector<Edit> &edits, QString &error)
{
    const char *data = original.data();
    const qint64 size = original.size();
    struct stat info { };
    const bool haveInfo = ::stat(QFile::encodeName(path).constData(), &info) == 0;
    const QString folder = QFileInfo(path).absolutePath();
    const QString staging = path + u".corvana-new"_s;
    const QByteArray stagingName = QFile::encodeName(staging);
    ::unlink(stagingName.constData()); // a leftover of an interrupted write: ours, never complete
    const int fd = ::open(stagingName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        error = u"cannot be updated: %1"_s.arg(systemError(errno));
        return false;
    }
    bool ok = true;
    qint64 at = 0;
    for (const Edit &edit : edits) {
        ok = ok && CVFullIO::writeFully(fd, data + at, size_t(edit.start - at))
            && CVFullIO::writeFully(fd, edit.bytes.constData(), size_t(edit.bytes.size()));
        at = edit.end;
    }
    ok = ok && CVFullIO::writeFully(fd, data + at, size_t(size - at));
    ok = ok && (!haveInfo || ::fchmod(fd, info.st_mode & 07777) == 0) && ::fsync(fd) == 0;
    const int writeError = errno;
    ::close(fd);
    if (!ok) {
        ::unlink(stagingName.constData());
        error = u"cannot be updated: %1"_s.arg(systemError(writeError));
        return false;
    }
    QString backupError;
    if (!makeBackup(path, data, size, backupError)) {
        ::unlink(stagingName.constData());
        error = u"was left as it was: %1"_s.arg(backupError);
        return false;
    }
    // Between the backup and the rename: where the tests kill the process.
    if (const int fault = CVFaultInjection::fault(CVFaultInjection::Point::LibraryRename)) {
        ::unlink(stagingName.constData());
        error = u"cannot be replaced: %1"_s.arg(systemError(fault));
        return false;
    }
    if (::rename(stagingName.constData(), QFile::encodeName(path).constData()) != 0) {
        const int renameError = errno;
        ::unlink(stagingName.constData());
        error = u"cannot be replaced: %1"_s.arg(systemError(renameError));
        return false;
    }
    syncFolder(folder);
    return true;
}
