// The work area's spill files: private files holding pixels that exist
// nowhere else, named for the process that made them. A session that ends
// without removing its own (a crash, a kill, a power cut) leaves them behind,
// and nothing can read them again; the next session takes them away.
//
// Whether a session still runs is told by a lock, not by its process id: a
// session holds an exclusive lock on its hidden file ".korvel-pixels-PID.lock"
// in every folder it spills to, from its first spill until it ends, and the
// system lets the lock go when the process dies, however it dies. A process
// id alone could name a live session in another process namespace sharing
// the folder, or a new process that reused the number.
#pragma once

#include <QString>

// A new spill file "korvel-pixels-PID-XXXXXX" in `folder`, created
// exclusively and readable by this user alone, under this session's lock
// there. Its descriptor, or -1 (nothing made) on failure.
int MakeSpillFile(const QString &folder, QString *path);

// Removes from `folder` the spill files and lock files of sessions that no
// longer run: this user's regular files whose session's lock can be taken.
// Returns how many spill files went.
int RemoveOrphanSpills(const QString &folder);
