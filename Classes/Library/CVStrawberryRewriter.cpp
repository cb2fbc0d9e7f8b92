#include "Library/CVStrawberryRewriter.h"

#include "Library/CVStrawberryDB.h"
#include "Platform/CVFaultInjection.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <sqlite3.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using CVStrawberryDB::Connection;
using CVStrawberryDB::Statement;

namespace {

struct Folder {
    qint64 id = 0;
    QString path;
};

std::optional<qint64> mtimeOf(const QString &path)
{
    struct stat info { };
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return std::nullopt;
    return qint64(info.st_mtime);
}

bool syncFile(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash > 0 ? path.left(slash) : u"/"_s;
}

bool isUnder(const QString &path, const QString &folder)
{
    return folder == u"/"_s || (path.size() > folder.size() && path.startsWith(folder) && path[folder.size()] == u'/');
}

// A new collection folder for a place under none: the span location, or the folder below it that
// holds the place where the span location would hold a collection folder already (Strawberry
// would scan the songs of nested folders twice); otherwise the file's own folder.
QString newCollectionFolder(const QString &path, const QString &spanLocation, const QList<Folder> &folders)
{
    if (spanLocation.isEmpty() || !isUnder(path, spanLocation))
        return QFileInfo(path).absolutePath();
    QString folder = spanLocation;
    const auto holdsAFolder = [&](const QString &candidate) {
        for (const Folder &f : folders)
            if (isUnder(f.path, candidate))
                return true;
        return false;
    };
    while (holdsAFolder(folder)) {
        const qsizetype next = path.indexOf(u'/', folder.size() + 1);
        if (next < 0)
            return QFileInfo(path).absolutePath();
        folder = path.left(next);
    }
    return folder;
}

} // namespace

bool CVStrawberryRewriter::backup(const QString &databasePath, const QString &backupPath, QString *error)
{
    QDir().mkpath(QFileInfo(backupPath).absolutePath());
    const QString partial = backupPath + u".partial"_s;
    QFile::remove(partial);
    Connection source;
    if (!source.open(databasePath, false)) {
        if (error)
            *error = source.errorString();
        return false;
    }
    sqlite3 *target = nullptr;
    bool ok = sqlite3_open_v2(QFile::encodeName(partial).constData(), &target,
                  SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr)
        == SQLITE_OK;
    if (ok) {
        sqlite3_backup *copy = sqlite3_backup_init(target, "main", source.handle(), "main");
        ok = copy && sqlite3_backup_step(copy, -1) == SQLITE_DONE;
        ok = sqlite3_backup_finish(copy) == SQLITE_OK && ok;
        if (!ok && error)
            *error = u"The Strawberry collection could not be backed up: %1"_s.arg(
                QString::fromUtf8(sqlite3_errmsg(target)));
    } else if (error) {
        *error = u"The backup “%1” cannot be made."_s.arg(partial);
    }
    sqlite3_close_v2(target);
    // The backup is whole on the disk before the collection is touched.
    if (ok
        && (!syncFile(partial)
            || ::rename(QFile::encodeName(partial).constData(), QFile::encodeName(backupPath).constData()) != 0)) {
        ok = false;
        if (error)
            *error
                = u"The backup “%1” cannot be written: %2"_s.arg(backupPath, QString::fromLocal8Bit(strerror(errno)));
    }
    if (!ok)
        QFile::remove(partial);
    return ok;
}

CVStrawberryRewriter::Result CVStrawberryRewriter::apply(
    const QString &databasePath, const QString &backupPath, const QList<Change> &changes)
{
    Result result;
    Connection db;
    if (!db.open(databasePath, true)) {
        result.error = db.errorString();
        return result;
    }
    if (!db.schemaVersion(&result.error))
        return result;
    if (changes.isEmpty()) {
        result.ok = true;
        return result;
    }
    QElapsedTimer timer;
    timer.start();
    if (!backup(databasePath, backupPath, &result.error))
        return result;
    result.backupMs = timer.restart();
    if (const int fault = CVFaultInjection::fault(CVFaultInjection::Point::LibraryRename)) {
        result.error = QString::fromLocal8Bit(strerror(fault));
        return result;
    }
    // Strawberry holds no lock while it idles; another writer is waited for a moment, no longer.
    sqlite3_busy_timeout(db.handle(), 2000);
    // The changed pages stay in memory until the commit: spilling them midway costs a journal sync.
    db.exec("PRAGMA cache_size = -262144");
    if (!db.exec("BEGIN IMMEDIATE")) {
        result.error = u"The Strawberry collection “%1” is in use by another program (%2); nothing was changed."_s.arg(
            databasePath, db.lastError());
        return result;
    }
    const auto fail = [&](const QString &what) {
        result.error = u"The Strawberry collection could not be written (%1: %2); nothing was changed."_s.arg(
            what, db.lastError());
        db.exec("ROLLBACK");
        result.unknown.clear();
        result.refused.clear();
        result.changed = 0;
        return result;
    };

    QList<Folder> folders;
    {
        Statement all(db, "SELECT ROWID, path FROM directories");
        if (!all)
            return fail(u"directories"_s);
        while (all.step() == SQLITE_ROW)
            folders.append({ all.integer(0), QString::fromUtf8(all.text(1)) });
    }
    QHash<QString, qint64> subfolders; // "directory_id TAB path" -> mtime
    QSet<QString> seen;
    {
        Statement all(db, "SELECT directory_id, path, mtime FROM subdirectories");
        if (!all)
            return fail(u"subdirectories"_s);
        while (all.step() == SQLITE_ROW)
            subfolders.insert(QString::number(all.integer(0)) + u'\t' + QString::fromUtf8(all.text(1)), all.integer(2));
    }
    Statement song(db, "SELECT url, art_automatic FROM songs WHERE ROWID = ?1");
    Statement holder(db, "SELECT ROWID FROM songs WHERE url = ?1 AND ROWID != ?2 LIMIT 1");
    Statement moveSong(db,
        "UPDATE songs SET url = ?1, directory_id = ?2, art_automatic = ?3, mtime = coalesce(?4, mtime), "
        "unavailable = CASE WHEN ?4 IS NULL THEN unavailable ELSE 0 END WHERE ROWID = ?5");
    Statement moveItem(db, "UPDATE playlist_items SET url = ?1 WHERE ROWID = ?2");
    Statement addFolder(db, "INSERT INTO directories (path, subdirs) VALUES (?1, 1)");
    Statement addSubfolder(db, "INSERT INTO subdirectories (directory_id, path, mtime) VALUES (?1, ?2, ?3)");
    Statement touchSubfolder(db, "UPDATE subdirectories SET mtime = ?3 WHERE directory_id = ?1 AND path = ?2");
    if (!song || !holder || !moveSong || !moveItem || !addFolder || !addSubfolder || !touchSubfolder)
        return fail(u"prepare"_s);

    // Items that name a file by their own url; playlist_items has no index on url.
    QHash<QByteArray, QList<qint64>> items;
    {
        Statement all(db, "SELECT ROWID, url FROM playlist_items WHERE type != 2");
        if (!all)
            return fail(u"playlist_items"_s);
        while (all.step() == SQLITE_ROW)
            items[all.text(1).toByteArray()].append(all.integer(0));
    }

    for (const Change &change : changes) {
        song.reset();
        song.bind(1, change.rowID);
        if (song.step() != SQLITE_ROW) {
            result.unknown.append(change.rowID);
            continue;
        }
        const QByteArray oldURL = song.text(0).toByteArray();
        const QByteArray art = song.text(1).toByteArray();
        song.reset();
        const QByteArray newURL = CVStrawberryDB::urlFromPath(change.path);
        if (newURL == oldURL)
            continue; // written before a crash cut the run short
        holder.reset();
        holder.bind(1, newURL);
        holder.bind(2, change.rowID);
        if (holder.step() == SQLITE_ROW) {
            holder.reset();
            result.refused.append(change.rowID);
            continue;
        }
        const QString oldPath = CVStrawberryDB::pathFromURL(oldURL).value_or(QString());

        // The innermost collection folder that holds the new place, else a new one.
        const Folder *target = nullptr;
        for (const Folder &f : std::as_const(folders))
            if (isUnder(change.path, f.path) && (!target || f.path.size() > target->path.size()))
                target = &f;
        if (!target) {
            const QString path = newCollectionFolder(change.path, change.collectionFolder, folders);
            addFolder.reset();
            addFolder.bind(1, path.toUtf8());
            if (addFolder.step() != SQLITE_DONE)
                return fail(u"directories"_s);
            folders.append({ sqlite3_last_insert_rowid(db.handle()), path });
            target = &folders.last();
        }
        // Every folder from the collection folder down to the file's, at its real mtime, so that
        // the next scan finds nothing new in them. Each folder once a write.
        for (QString dir = parentOf(change.path); !dir.isEmpty();
             dir = dir == target->path ? QString() : parentOf(dir)) {
            const QString key = QString::number(target->id) + u'\t' + dir;
            if (seen.contains(key))
                break; // and so are the folders above it
            seen.insert(key);
            const std::optional<qint64> mtime = mtimeOf(dir);
            const auto known = subfolders.constFind(key);
            if (known == subfolders.cend() || (mtime && *known != *mtime)) {
                Statement &write = known == subfolders.cend() ? addSubfolder : touchSubfolder;
                write.reset();
                write.bind(1, target->id);
                write.bind(2, dir.toUtf8());
                write.bind(3, mtime.value_or(0));
                if (write.step() != SQLITE_DONE)
                    return fail(u"subdirectories"_s);
            }
            if (!isUnder(dir, target->path))
                break;
        }

        // A cover found beside the old file is looked for beside the new one.
        QByteArray newArt = art;
        if (const auto artPath = CVStrawberryDB::pathFromURL(art);
            artPath && QFileInfo(*artPath).absolutePath() == QFileInfo(oldPath).absolutePath()) {
            const QString moved = QFileInfo(change.path).absolutePath() + u'/' + QFileInfo(*artPath).fileName();
            if (QFileInfo::exists(moved))
                newArt = CVStrawberryDB::urlFromPath(moved);
        }
        Statement &m = moveSong;
        m.reset();
        m.bind(1, newURL);
        m.bind(2, target->id);
        if (newArt.isNull())
            sqlite3_bind_null(m.get(), 3);
        else
            m.bind(3, newArt);
        // The copy keeps the file's mtime; where it could not, the scanner must not read the tags again.
        if (const std::optional<qint64> mtime = mtimeOf(change.path))
            m.bind(4, *mtime);
        else
            sqlite3_bind_null(m.get(), 4);
        m.bind(5, change.rowID);
        if (m.step() != SQLITE_DONE)
            return fail(u"songs"_s);
        for (qint64 item : items.take(oldURL)) {
            moveItem.reset();
            moveItem.bind(1, newURL);
            moveItem.bind(2, item);
            if (moveItem.step() != SQLITE_DONE)
                return fail(u"playlist_items"_s);
            items[newURL].append(item);
        }
        ++result.changed;
    }
    if (!db.exec("COMMIT"))
        return fail(u"commit"_s);
    result.transactionMs = timer.restart();

    Statement check(db, "PRAGMA integrity_check");
    if (!check || check.step() != SQLITE_ROW || check.text(0) != "ok") {
        result.error = u"After the new places were written, the Strawberry collection fails its integrity check (%1). "
                       "Its copy from before is “%2”."_s.arg(
                           check ? QString::fromUtf8(check.text(0)) : db.lastError(), backupPath);
        return result;
    }
    result.checkMs = timer.elapsed();
    result.ok = true;
    return result;
}
