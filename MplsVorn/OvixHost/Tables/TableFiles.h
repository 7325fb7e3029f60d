#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "Posix/FileDescriptor.h"

namespace Tessel {

/// The files of shared tables, in a directory that only its owner may write and only its group may
/// enter: NAME holds the tables, and NAME:lock is what their writer has locked, which readers
/// cannot open. Who trusts them trusts the owners of both: that is this user or root, else they are
/// refused; as they are when others could have written them, or when they are no plain files.
/// In a directory of the user "ovix", which only members of its group can enter, members of the
/// group "ovix-admin" may write both, too. Refusals are std::system_error, whose text names the
/// tables, and the file with what is wrong.
namespace TableFiles {

/// That of $OVIX_TABLES_DIR; else /dev/shm/ovix for root, and /dev/shm/ovix-UID for other users.
std::string directory();

/// Those of the directory; of another user than root, who has none of that name and has chosen no
/// directory, those of the system. The same holds for writing.
Posix::FileDescriptor openForReading(const std::string& name);

struct Writing {
    Posix::FileDescriptor file;
    Posix::FileDescriptor lock; ///< locked as long as it is open
};
/// Makes what is missing: `makeRoom`, which may throw, gives a new file its size before there is
/// any of that name. Nothing new is left when that fails. Waits for other writers, who get their
/// turns in the order in which they have come, more or less; throws TablesBusy when one still has
/// the lock after `wait`.
Writing openForWriting(const std::string& name,
                       const std::function<void(const Posix::FileDescriptor&)>& makeRoom = {},
                       std::chrono::milliseconds wait = {});

/// The lock alone.
Posix::FileDescriptor lockForWriting(const std::string& name, std::chrono::milliseconds wait);

/// Whoever publishes routes in an owner's name for longer than a batch, as a listener does, holds
/// this as long as it is open. Makes what is missing. Throws TablesBusy while another process has
/// it.
Posix::FileDescriptor holdOwner(const std::string& name, std::uint8_t owner);

/// Removes both files; false when there were no tables. Who has them open keeps them.
bool remove(const std::string& name);

} // namespace TableFiles

} // namespace Tessel
