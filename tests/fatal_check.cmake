# Runs tst_initializer as a child that calls qFatal, then checks that the
# fatal message reached its log file before the process aborted. A script of
# its own, not QProcess: under qemu-user an emulated program cannot start
# child processes.
#
#     cmake -DPROGRAM=... -DWORK_DIR=... [-DEMULATOR=...] -P fatal_check.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" -fatal-child "${WORK_DIR}"
                RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET)
if(result EQUAL 0)
    message(FATAL_ERROR "the child exited normally after qFatal")
endif()
file(READ "${WORK_DIR}/fatal.log" log)
# The message, then the crash record of the abort that follows.
if(NOT log MATCHES " c \\[qt\\] fatal message 42\n[0-9:.]+ c \\[logging\\] Crash: signal SIGABRT \\(6\\) in thread [0-9]+ \\(main\\)\n$")
    message(FATAL_ERROR "fatal message missing from the log file:\n${log}")
endif()
