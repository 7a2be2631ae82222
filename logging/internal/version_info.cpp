#include <logging/version_info.h>

#include "qtlog_git_info.h"

namespace zelvath {

const char *GitHash()
{
    return QTLOG_GIT_HASH;
}

const char *GitBranch()
{
    return QTLOG_GIT_BRANCH;
}

const char *GitTag()
{
    return QTLOG_GIT_TAG;
}

} // namespace zelvath
