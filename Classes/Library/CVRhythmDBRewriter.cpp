#include "Library/CVRhythmDBRewriter.h"

#include "Library/CVLibraryFileRewriter.h"
#include "Library/CVRhythmDB.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <algorithm>

using namespace Qt::StringLiterals;
using CVLibraryFileRewriter::Edit;
using CVRhythmDB::Field;

namespace {

struct Entry {
    QByteArray location;
    Field locationField;
    std::optional<Field> mountPointField;
};

// The file mapped for one rewrite.
struct Mapped {
    QFile file;
    QByteArrayView bytes;
    QString error;

    explicit Mapped(const QString &path)
        : file(path)
    {
        if (!file.open(QIODevice::ReadOnly)) {
            error = file.errorString();
            return;
        }
        const qint64 size = file.size();
        const uchar *data = size > 0 ? file.map(0, size) : nullptr;
        if (!data)
            error = u"the file is empty or cannot be read"_s;
        else
            bytes = QByteArrayView(reinterpret_cast<const char *>(data), size);
    }
};

QString shown(const QByteArray &uri)
{
    return CVRhythmDB::pathFromURI(uri).value_or(QString::fromUtf8(uri));
}

QByteArray element(const char *name, const QByteArray &text)
{
    return QByteArray("<") + name + '>' + CVRhythmDB::encodeText(text) + "</" + name + '>';
}

bool readEntries(QByteArrayView document, std::vector<Entry> &entries, QString &error)
{
    CVRhythmDB::Scanner scanner(document);
    if (!scanner.readHeader()) {
        error = scanner.errorString();
        return false;
    }
    if (!CVRhythmDB::isKnownVersion(scanner.version())) {
        error = u"it is of version “%1”, which Corvana does not know"_s.arg(
            QString::fromLatin1(scanner.version().data(), qsizetype(scanner.version().size())));
        return false;
    }
    Field field;
    while (scanner.nextElement("entry")) {
        Entry entry;
        while (scanner.nextField(field)) {
            if (field.name == "location") {
                entry.location = CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), qsizetype(field.raw.size())));
                entry.locationField = field;
            } else if (field.name == "mountpoint") {
                entry.mountPointField = field;
            }
        }
        if (!entry.location.isEmpty())
            entries.push_back(std::move(entry));
    }
    if (scanner.hasError()) {
        error = scanner.errorString();
        return false;
    }
    return true;
}

} // namespace

QString CVRhythmDBRewriter::checkFile(const QString &databasePath)
{
    Mapped mapped(databasePath);
    if (!mapped.error.isEmpty())
        return u"The Rhythmbox library “%1” cannot be read: %2."_s.arg(databasePath, mapped.error);
    CVRhythmDB::Scanner scanner(mapped.bytes);
    if (!scanner.readHeader())
        return u"The Rhythmbox library “%1” cannot be read: %2."_s.arg(databasePath, scanner.errorString());
    if (!CVRhythmDB::isKnownVersion(scanner.version()))
        return u"The Rhythmbox library “%1” is of version “%2”, which Corvana does not know; Corvana changes "
               "nothing in it."_s.arg(
                   databasePath, QString::fromLatin1(scanner.version().data(), qsizetype(scanner.version().size())));
    return {};
}

CVRhythmDBRewriter::Result CVRhythmDBRewriter::apply(const QString &databasePath, const QList<Change> &changes)
{
    Result result;
    Mapped database(databasePath);
    if (!database.error.isEmpty()) {
        result.error = u"The Rhythmbox library “%1” cannot be read: %2."_s.arg(databasePath, database.error);
        return result;
    }
    std::vector<Entry> entries;
    QString error;
    if (!readEntries(database.bytes, entries, error)) {
        result.error = u"The Rhythmbox library “%1” was left as it was: %2."_s.arg(databasePath, error);
        return result;
    }

    // The changes in order, on the locations as they would be: a song may move twice, and one
    // move may free the place that the next takes.
    QHash<QByteArray, std::size_t> at;
    at.reserve(qsizetype(entries.size()));
    for (std::size_t i = 0; i < entries.size(); ++i)
        at.insert(entries[i].location, i);
    struct Target {
        QByteArray location;
        std::optional<QByteArray> mountPoint;
    };
    QHash<std::size_t, Target> targets;
    QHash<QByteArray, std::size_t> moved; // a location before the changes -> its song
    for (const Change &change : changes) {
        if (change.from.isEmpty() || change.to.isEmpty())
            continue;
        std::size_t index = 0;
        const auto from = at.constFind(change.from);
        const auto to = at.constFind(change.to);
        if (from != at.cend()) {
            index = *from;
            if (to != at.cend() && *to != index) {
                result.error = u"The new location “%1” is already the location of another entry of the Rhythmbox "
                               "library “%2”; nothing was changed."_s.arg(shown(change.to), databasePath);
                return result;
            }
            at.remove(change.from);
        } else if (to != at.cend()) {
            index = *to; // written before: a repeat after an interruption
        } else {
            result.unknown.append(change.from);
            continue;
        }
        at.insert(change.to, index);
        targets.insert(index, { change.to, change.mountPoint });
        moved.insert(change.from, index);
    }

    std::vector<Edit> edits;
    for (auto it = targets.cbegin(); it != targets.cend(); ++it) {
        const Entry &entry = entries[it.key()];
        const Target &target = it.value();
        if (entry.location != target.location)
            edits.push_back(
                { entry.locationField.start, entry.locationField.end, element("location", target.location) });
        const QByteArray oldMount = entry.mountPointField
            ? CVRhythmDB::decodeText(
                QByteArrayView(entry.mountPointField->raw.data(), qsizetype(entry.mountPointField->raw.size())))
            : QByteArray();
        if (target.mountPoint && entry.mountPointField && oldMount != *target.mountPoint) {
            edits.push_back({ entry.mountPointField->start, entry.mountPointField->end,
                element("mountpoint", *target.mountPoint) });
        } else if (target.mountPoint && !entry.mountPointField) {
            // Where Rhythmbox writes it: the line after the location, indented alike.
            const QByteArrayView indent = database.bytes.sliced(
                entry.locationField.lineStart, entry.locationField.start - entry.locationField.lineStart);
            edits.push_back({ entry.locationField.end, entry.locationField.end,
                '\n' + indent.toByteArray() + element("mountpoint", *target.mountPoint) });
        } else if (!target.mountPoint && entry.mountPointField) {
            // The element goes with its line.
            const Field &f = *entry.mountPointField;
            const bool ownLine
                = f.lineStart < f.start && f.end < database.bytes.size() && database.bytes[f.end] == '\n';
            qint64 start = ownLine ? f.lineStart - 1 : f.start;
            if (f.start >= entry.locationField.end)
                start = qMax(start, entry.locationField.end);
            edits.push_back({ start, f.end, QByteArray() });
        }
    }
    std::sort(edits.begin(), edits.end(), [](const Edit &a, const Edit &b) { return a.start < b.start; });

    // The playlists name songs by location too.
    const QString playlistsPath = QFileInfo(databasePath).absolutePath() + u"/playlists.xml"_s;
    std::vector<Edit> playlistEdits;
    std::optional<Mapped> playlists;
    if (!moved.isEmpty() && QFileInfo::exists(playlistsPath)) {
        playlists.emplace(playlistsPath);
        if (!playlists->error.isEmpty()) {
            result.error = u"The Rhythmbox playlists “%1” cannot be read: %2."_s.arg(playlistsPath, playlists->error);
            return result;
        }
        CVRhythmDB::Scanner scanner(playlists->bytes);
        if (!scanner.readHeader("rhythmdb-playlists")) {
            result.error = u"The Rhythmbox playlists “%1” were left as they were: %2."_s.arg(
                playlistsPath, scanner.errorString());
            return result;
        }
        Field field;
        while (scanner.nextElement("playlist")) {
            while (scanner.nextField(field)) {
                if (field.name != "location")
                    continue;
                const auto song = moved.constFind(
                    CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), qsizetype(field.raw.size()))));
                if (song != moved.cend())
                    playlistEdits.push_back({ field.start, field.end, element("location", targets[*song].location) });
            }
        }
        if (scanner.hasError()) {
            result.error = u"The Rhythmbox playlists “%1” were left as they were: %2."_s.arg(
                playlistsPath, scanner.errorString());
            return result;
        }
    }

    // The library first: a crash between the two files is mended by applying the changes again.
    if (!edits.empty() && !CVLibraryFileRewriter::replaceWithEdits(databasePath, database.bytes, edits, error)) {
        result.error = u"The Rhythmbox library “%1” %2"_s.arg(databasePath, error);
        return result;
    }
    if (!playlistEdits.empty()
        && !CVLibraryFileRewriter::replaceWithEdits(playlistsPath, playlists->bytes, playlistEdits, error)) {
        result.error = u"The Rhythmbox playlists “%1” %2"_s.arg(playlistsPath, error);
        return result;
    }
    result.ok = true;
    result.applied = int(targets.size());
    return result;
}
