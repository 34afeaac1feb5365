# Installs the build into a fresh folder and runs the installed command from there: the executable
# must find its commands library in the installed library folder, not in the build tree.
#   cmake -DBUILD_DIR=... -DCOMMAND=... -DLIBRARY=... -DPREFIX=... -P installed_layout.cmake
if(NOT EXISTS ${COMMAND} OR NOT EXISTS ${LIBRARY})
    message(STATUS "the command is not built in ${BUILD_DIR}: nothing to install")
    return()
endif()
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "cmake --install failed (${status}): ${err}")
endif()

# The usage needs no library.
execute_process(COMMAND ${PREFIX}/bin/quelmor --help
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0 OR NOT out MATCHES "usage: quelmor COMMAND")
    message(FATAL_ERROR "installed quelmor --help: status ${status}, ${err}")
endif()

# A command runs in the library: its refusal of a missing input comes from there, and the loader
# says which file it opened.
execute_process(COMMAND ${CMAKE_COMMAND} -E env LD_DEBUG=libs
    ${PREFIX}/bin/quelmor score ${PREFIX}/missing.%04d.png ${PREFIX}/missing.%04d.png
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 1 OR NOT err MATCHES "quelmor: [^\n]*missing\\.%04d\\.png")
    message(FATAL_ERROR "installed quelmor score: status ${status}, not the library's refusal:\n"
        "${err}")
endif()
string(REGEX MATCH "init: [^\n]*libquelmor_commands\\.so" loaded "${err}")
string(FIND "${loaded}" "init: ${PREFIX}/" at)
if(NOT at EQUAL 0)
    message(FATAL_ERROR "installed quelmor loaded \"${loaded}\", not the copy under ${PREFIX}")
endif()
file(REMOVE_RECURSE ${PREFIX})
message(STATUS "installed quelmor runs with its library from ${PREFIX}")
