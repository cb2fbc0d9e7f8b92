#include "Library/CVPlayerLibraryFile.h"

#include "Library/CVLibraryManager.h"
#include "Library/CVRhythmDBReader.h"
#include "Library/CVRhythmboxIdentities.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVStrawberryReader.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

bool CVPlayerLibraryFile::isPlayerName(const QString &player)
{
    return player == QLatin1StringView(PlayerAuto) || player == QLatin1StringView(PlayerRhythmbox)
        || player == QLatin1StringView(PlayerStrawberry) || player == QLatin1StringView(PlayerITunesFile)
        || player == QLatin1StringView(PlayerDBus);
}

CVPlayerLibraryFile::Kind CVPlayerLibraryFile::kindOf(const QString &path)
{
    if (QFileInfo(path).fileName() == u"rhythmdb.xml"_s)
        return Kind::Rhythmbox;
    if (QFileInfo(path).fileName() == u"strawberry.db"_s)
        return Kind::Strawberry;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Kind::ITunes;
    if (file.peek(16) == QByteArray("SQLite format 3\0", 16))
        return Kind::Strawberry;
    // The first element: a property list's <plist>, or <rhythmdb>.
    const QByteArray start = file.read(512);
    qsizetype at = 0;
    while ((at = start.indexOf('<', at)) >= 0) {
        const QByteArrayView rest = QByteArrayView(start).sliced(at + 1);
        if (!rest.startsWith('?') && !rest.startsWith('!'))
            return rest.startsWith("rhythmdb") ? Kind::Rhythmbox : Kind::ITunes;
        ++at;
    }
    return Kind::ITunes;
}

QString CVPlayerLibraryFile::rhythmboxLibraryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/rhythmbox/rhythmdb.xml"_s;
}

QString CVPlayerLibraryFile::strawberryLibraryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + u"/strawberry/strawberry/strawberry.db"_s;
}

QString CVPlayerLibraryFile::chooseLibraryFile(const QString &homePath, const QString &player)
{
    const QString rhythmbox = rhythmboxLibraryPath();
    const QString strawberry = strawberryLibraryPath();
    if (player == QLatin1StringView(PlayerRhythmbox))
        return QFileInfo::exists(rhythmbox) ? rhythmbox : QString();
    if (player == QLatin1StringView(PlayerStrawberry))
        return QFileInfo::exists(strawberry) ? strawberry : QString();
    const QString iTunes = CVLibraryManager::chooseLibraryFile(homePath);
    if (!iTunes.isEmpty() || player == QLatin1StringView(PlayerITunesFile) || player == QLatin1StringView(PlayerDBus))
        return iTunes;
    if (QFileInfo::exists(rhythmbox))
        return rhythmbox;
    return QFileInfo::exists(strawberry) ? strawberry : QString();
}

bool CVPlayerLibraryFile::read(
    const QString &path, CVLibraryContents &out, CVLibraryFileReader::Options options, QString *error)
{
    const Kind kind = kindOf(path);
    if (kind == Kind::Strawberry) {
        CVStrawberryReader reader(std::move(options));
        if (reader.readFile(path, out))
            return true;
        if (error)
            *error = reader.errorString();
        return false;
    }
    if (kind == Kind::Rhythmbox) {
        CVRhythmboxIdentities identities(CVSpanHistory::applicationSupportFolder(), path);
        QString tableError;
        if (!identities.load(&tableError)) {
            if (error)
                *error = tableError;
            return false;
        }
        CVRhythmDBReader reader(identities, std::move(options));
        if (reader.readFile(path, out))
            return true;
        if (error)
            *error = reader.errorString();
        return false;
    }
    CVLibraryFileReader reader(std::move(options));
    if (reader.readFile(path, out))
        return true;
    if (error)
        *error = reader.errorString();
    return false;
}
