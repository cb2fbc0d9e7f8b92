#pragma once

#include <QString>

#include <functional>

// A seam for tests of the file operations: makes the N-th call at a point fail with a chosen
// errno, as a full drive, a pulled cable or a read-only folder would. Off unless a test sets it,
// or CORVANA_FAULT_INJECTION names faults for a process ("copy-write=3:ENOSPC,trash-rename=1:EIO";
// "N+" keeps failing from the N-th call on; "KILL" kills the process there; "SKIP" leaves out a sync).
namespace CVFaultInjection {

enum class Point {
    CopyOpen, // creating the temporary copy
    CopyWrite, // each chunk of bytes written
    CopyFsync,
    CopyRename, // the copy taking its final name
    FolderCreate,
    TrashRename, // an item going into the Trash
    HistoryCommit, // the span history's save
    LibraryRename, // a rewritten library file taking its name, after its backup
    FileSystemSync, // each syncfs that makes a run's copies, records or Trash info files durable
    TrashInfoSync, // the info file of a single item going into the Trash made durable alone
    BeforeTrash, // an original about to go into the Trash, after its last checks were prepared
};

// Instead of an errno: the process is killed at that call, as a crash or a pulled plug would.
constexpr int Kill = -1;
// Instead of an errno, at a sync: the sync is not made and reported done, as a disk that lies
// about its cache would. Tests use it to prove that a missing sync is noticed.
constexpr int Skip = -2;

// The errno to fail with at this call, or 0 to go on. Each call at a point counts.
int fault(Point point);

// Fails the nth call from now at the point with the errno (nth 1 is the next call); repeat keeps
// failing every call after it. A point can hold one fault at a time.
void set(Point point, int nth, int error, bool repeat = false);
void clear();
// Runs `action` at every call at the point (with the call's path), before any fault there;
// tests use it to change the world at exactly that moment. An empty action removes it.
void setAction(Point point, std::function<void(const QString &path)> action);
// Calls the point's action, if any, then returns fault(point).
int fault(Point point, const QString &path);
// Reads faults in the form of CORVANA_FAULT_INJECTION; false when the text does not parse.
bool parse(const QString &text);

} // namespace CVFaultInjection
