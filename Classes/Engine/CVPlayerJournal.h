#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// The file in which a player link notes each change before the player's library has it: one line
// per change, written with one write(2) so that a crash of this process never loses an
// acknowledged line, and read back without the line a crash cut short.
namespace CVPlayerJournal {

// Appends `line` (ending in '\n'), making the journal's folder when needed. False with errno's
// value in `error` when it could not be written.
bool appendLine(const QString &path, const QByteArray &line, int *error = nullptr);
// The journal's whole lines, without their '\n'; none when there is no journal.
QList<QByteArray> completeLines(const QString &path);

} // namespace CVPlayerJournal
