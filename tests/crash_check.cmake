# Runs tst_crash as a child that logs and crashes (scenario SCENARIO), then
# as the check of what the child left. A script of its own: under qemu-user
# an emulated program can start no other program.
#
#     cmake -DPROGRAM=... -DSCENARIO=n -DWORK_DIR=... [-DEMULATOR=...] -P crash_check.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" -crash-child ${SCENARIO} "${WORK_DIR}"
                RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET TIMEOUT 60)
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" -crash-check ${SCENARIO} "${WORK_DIR}" "${result}"
                RESULT_VARIABLE checked)
if(NOT checked EQUAL 0)
    message(FATAL_ERROR "scenario ${SCENARIO}: the child ended with \"${result}\"")
endif()
