#pragma once

#include <QString>

// A mount namespace of the test process's own with an empty tmpfs over /mnt, where its drives
// go, so that the machine's mounts are never touched. Entered from main() before anything
// starts a thread (as root, or in a user namespace); where neither can be had, the tests that
// need drives skip with the reason.
namespace CVPrivateMounts {

bool enter();
bool available();
QString whyNot();

// A drive: a tmpfs of the given size mounted at /mnt/NAME (a drive root). Empty on failure.
QString mountDrive(const QString &name, qint64 bytes);
void unmountDrive(const QString &root);

} // namespace CVPrivateMounts
