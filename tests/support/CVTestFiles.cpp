#include "CVTestFiles.h"

#include "Library/CVLibraryFileReader.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVTrack.h"

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QThread>

QByteArray fileDigest(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(&file);
    return hash.result();
}

QHash<QString, QString> libraryLocations(const QString &libraryFile)
{
    CVLibraryContents contents;
    CVLibraryFileReader reader;
    if (!reader.readFile(libraryFile, contents))
        qFatal("the library file does not read: %s", qPrintable(reader.errorString()));
    QHash<QString, QString> locations;
    for (const CVTrack &track : contents.tracks)
        if (track.has(CVAttr::Location))
            locations.insert(track.text(CVAttr::PersistentID), track.text(CVAttr::Location));
    return locations;
}

bool waitForBusName(const QString &name, bool present)
{
    QDeadlineTimer deadline(20000);
    while (!deadline.hasExpired()) {
        if (QDBusConnection::sessionBus().interface()->isServiceRegistered(name).value() == present)
            return true;
        QThread::msleep(20);
    }
    return false;
}

QHash<QString, QString> playerLocations(const QString &database)
{
    CVLibraryContents contents;
    QHash<QString, QString> locations;
    if (!CVPlayerLibraryFile::read(database, contents, {}, nullptr))
        return locations;
    for (const CVTrack &track : contents.tracks)
        locations.insert(track.text(CVAttr::PersistentID), track.text(CVAttr::Location));
    return locations;
}
