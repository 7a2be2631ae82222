#ifndef QTLOG_VERSION_INFO_H
#define QTLOG_VERSION_INFO_H

#include <logging/qtlog_global.h>

// The library's build identification, taken from git when it was built.
// Built outside a git checkout, the hash and branch read "unknown".
namespace zelvath {

QTLOG_EXPORT const char *GitHash();     // abbreviated commit hash
QTLOG_EXPORT const char *GitBranch();   // branch name, "detached" for none
QTLOG_EXPORT const char *GitTag();      // tag on the commit; empty if none

} // namespace zelvath

#endif // QTLOG_VERSION_INFO_H
