#pragma once

#include <sys/types.h>

namespace Posix {

/// The accounts that a system may have for the programs: user "ovix", as which they run; group
/// "ovix", whose members may read; group "ovix-admin", whose members may also change. Without them
/// there are only root and each user's own.
namespace ServiceAccounts {

/// Whether what belongs to this user is to be trusted: it is root, this process's user or "ovix".
bool isTrusted(uid_t user);

/// Whether a directory of this user is the service's, in which files are shared by groups.
bool isService(uid_t user);

/// Whether what members of this group may write is to be trusted: it is "ovix-admin".
bool isAdmins(gid_t group);

/// Gives an open file to "ovix-admin", or what a path names to "ovix", with this mode. Without
/// effect when there is no such group or this process may not do it: it stays closed to the group.
void shareWithAdmins(int file, mode_t mode);
void shareWithReaders(const char* path, mode_t mode);

/// Whether who is at the other end of a local socket may change things: root, this process's user
/// or a member of "ovix-admin".
bool mayChange(int connection);

} // namespace ServiceAccounts

} // namespace Posix
