#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QtTest>

// Small file helpers for tests: write (making the folders) and read back whole files.
inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// A file's SHA-1, or an empty array when it cannot be read.
QByteArray fileDigest(const QString &path);
// The Location of every track of a library file, by persistent ID (fatal when it does not read).
QHash<QString, QString> libraryLocations(const QString &libraryFile);
// The Location of every track of any player's library (iTunes-format file, Rhythmbox, Strawberry),
// by persistent ID; empty when it does not read.
QHash<QString, QString> playerLocations(const QString &database);
// Waits up to 20 s until a name on the session bus has an owner (or has none); false when not.
bool waitForBusName(const QString &name, bool present);
