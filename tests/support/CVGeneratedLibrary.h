#pragma once

#include "CVLibraryGenerator.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

// A player's library generated with its media files, and what every file held then, so that a
// test can check afterwards that nothing was lost and every track is where its player says.
class CVGeneratedLibrary {
public:
    enum class Player { LibraryFile, Rhythmbox, Strawberry };

    // Writes the library at `database` (making its folder), media files always made; false with
    // errorString when it could not. Strawberry's collection takes the schema version.
    bool write(const QString &database, CVLibraryGeneratorOptions options, Player player = Player::LibraryFile,
        int schema = 15);

    // Where the player's library puts every track now, by persistent ID.
    QHash<QString, QString> locationsNow() const;
    // The tracks whose bytes are in no file under any of the roots, the Trash included: lost.
    // Library files and Trash records are not media and are not looked into.
    QStringList lostUnder(const QStringList &roots) const;
    // The tracks whose place in the player's library holds no file, or other bytes.
    QStringList notAtTheirPlace() const;

    QString database;
    QString errorString;
    // Every file track's place and the digest of its bytes when the library was written.
    QHash<QString, QString> locations;
    QHash<QString, QByteArray> digests;
};
