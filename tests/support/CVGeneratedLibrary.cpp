#include "CVGeneratedLibrary.h"

#include "CVRhythmboxGenerator.h"
#include "CVStrawberryGenerator.h"
#include "CVTestFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QSet>

using namespace Qt::StringLiterals;

bool CVGeneratedLibrary::write(const QString &file, CVLibraryGeneratorOptions options, Player player, int schema)
{
    database = file;
    options.createMediaFiles = true;
    QDir().mkpath(QFileInfo(file).path());
    bool written = false;
    switch (player) {
    case Player::LibraryFile: {
        CVLibraryGenerator generator(options);
        written = generator.write(file);
        errorString = generator.errorString();
        break;
    }
    case Player::Rhythmbox: {
        CVRhythmboxGenerator generator(options);
        written = generator.write(file);
        errorString = generator.errorString();
        break;
    }
    case Player::Strawberry: {
        CVStrawberryGenerator generator(options, schema);
        written = generator.write(file);
        errorString = generator.errorString();
        break;
    }
    }
    if (!written)
        return false;
    locations.clear();
    digests.clear();
    for (auto [pid, path] : locationsNow().asKeyValueRange()) {
        if (!QFileInfo(path).isFile())
            continue; // streams, and tracks whose file the generator left out on purpose
        locations.insert(pid, path);
        digests.insert(pid, fileDigest(path));
    }
    return true;
}

QHash<QString, QString> CVGeneratedLibrary::locationsNow() const
{
    return playerLocations(database);
}

QStringList CVGeneratedLibrary::lostUnder(const QStringList &roots) const
{
    QSet<QByteArray> found;
    for (const QString &root : roots) {
        QDirIterator it(
            root, QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            if (!path.endsWith(u".xml"_s) && !path.endsWith(u".trashinfo"_s) && !path.endsWith(u".db"_s))
                found.insert(fileDigest(path));
        }
    }
    QStringList lost;
    for (auto [pid, bytes] : digests.asKeyValueRange())
        if (!found.contains(bytes))
            lost.append(pid);
    lost.sort();
    return lost;
}

QStringList CVGeneratedLibrary::notAtTheirPlace() const
{
    const QHash<QString, QString> now = locationsNow();
    QStringList misplaced;
    for (auto [pid, bytes] : digests.asKeyValueRange())
        if (!now.contains(pid) || fileDigest(now.value(pid)) != bytes)
            misplaced.append(u"%1 (at %2)"_s.arg(pid, now.value(pid)));
    misplaced.sort();
    return misplaced;
}
