# Writes the build identification header from the git checkout at SOURCE_DIR
# into OUTPUT. Run as a script at every build; the file is rewritten only when
# its content changes, so a new commit recompiles exactly one unit.
#
#   cmake -DSOURCE_DIR=<dir> -DOUTPUT=<file> -P QtlogGitInfo.cmake

set(hash "unknown")
set(branch "unknown")
set(tag "")

find_package(Git QUIET)

function(_qtlog_git out)
    execute_process(COMMAND "${GIT_EXECUTABLE}" ${ARGN}
                    WORKING_DIRECTORY "${SOURCE_DIR}"
                    RESULT_VARIABLE rc
                    OUTPUT_VARIABLE text
                    OUTPUT_STRIP_TRAILING_WHITESPACE
                    ERROR_QUIET)
    if(rc EQUAL 0)
        set(${out} "${text}" PARENT_SCOPE)
    else()
        set(${out} "" PARENT_SCOPE)
    endif()
endfunction()

if(GIT_FOUND)
    # Only trust git when SOURCE_DIR is the top of its own checkout, not a
    # source tree unpacked inside some other repository.
    _qtlog_git(top rev-parse --show-toplevel)
    get_filename_component(top_real "${top}" REALPATH)
    get_filename_component(src_real "${SOURCE_DIR}" REALPATH)
    if(top AND top_real STREQUAL src_real)
        _qtlog_git(h rev-parse --short HEAD)
        if(h)
            set(hash "${h}")
            _qtlog_git(b rev-parse --abbrev-ref HEAD)
            if(b STREQUAL "HEAD")
                set(branch "detached")
            elseif(b)
                set(branch "${b}")
            endif()
            _qtlog_git(t describe --tags --exact-match HEAD)
            set(tag "${t}")
        endif()
    endif()
endif()

# Keep the texts printable and safe inside a C string literal.
foreach(v hash branch tag)
    string(REGEX REPLACE "[^A-Za-z0-9._+/@-]" "_" ${v} "${${v}}")
endforeach()

set(content "// Generated at build time from git; do not edit.
#define QTLOG_GIT_HASH \"${hash}\"
#define QTLOG_GIT_BRANCH \"${branch}\"
#define QTLOG_GIT_TAG \"${tag}\"
")

if(EXISTS "${OUTPUT}")
    file(READ "${OUTPUT}" old)
    if(old STREQUAL content)
        return()
    endif()
endif()
file(WRITE "${OUTPUT}" "${content}")
