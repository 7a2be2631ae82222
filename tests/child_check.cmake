# Runs PROGRAM as a child that logs and ends in its own way (scenario
# SCENARIO), keeping its standard error in WORK_DIR/stderr, then as the check
# of what the child left. A script of its own: under qemu-user an emulated
# program can start no other program.
#
#     cmake -DPROGRAM=... -DSCENARIO=n -DWORK_DIR=... [-DEMULATOR=...] -P child_check.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" -child ${SCENARIO} "${WORK_DIR}"
                RESULT_VARIABLE result OUTPUT_QUIET ERROR_FILE "${WORK_DIR}/stderr" TIMEOUT 60)
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" -check ${SCENARIO} "${WORK_DIR}" "${result}"
                RESULT_VARIABLE checked)
if(NOT checked EQUAL 0)
    message(FATAL_ERROR "scenario ${SCENARIO}: the child ended with \"${result}\"")
endif()
