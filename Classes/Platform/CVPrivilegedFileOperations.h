#pragma once

#include <QString>

class CVAuthorization;

// Moving, copying and removing with administrator rights, for places the user may not own.
// Nothing is ever overwritten. Callers use these from one thread at a time; each call blocks.
namespace CVPrivilegedFileOperations {

bool authorizedMoveItemAtPath(const QString &source, const QString &destination, QString *error = nullptr);
bool authorizedCopyItemAtPath(const QString &source, const QString &destination, QString *error = nullptr);
bool authorizedRemoveItemAtPath(const QString &path, QString *error = nullptr);
// Obtains the one shared authorization of the process, asking the user the first time.
bool getAuthorization();
CVAuthorization *sharedAuthorization();
// Forgets the shared authorization and stops its runner (tests; a new launcher).
void dropAuthorization();

} // namespace CVPrivilegedFileOperations
