# After an installation: the run-time linker looks the library up in a cache, which `ldconfig` refreshes for the
# folders that it knows (/usr/local/lib is one). In any other folder programs need the words below.
# Set by the caller: library_folder (absolute).
if(NOT "$ENV{DESTDIR}" STREQUAL "")
  return() # packaging: the package's own scripts do this where it is installed
endif()
find_program(ldconfig NAMES ldconfig PATHS /sbin /usr/sbin)
if(ldconfig)
  execute_process(COMMAND ${ldconfig} -v -N -X OUTPUT_VARIABLE known ERROR_QUIET)
  string(FIND "${known}" "${library_folder}:" position)
  if(NOT position EQUAL -1)
    execute_process(COMMAND ${ldconfig} RESULT_VARIABLE refused ERROR_QUIET)
    if(refused EQUAL 0)
      return()
    endif()
    message(STATUS "Run 'ldconfig' as root once, so that programs find libtorvane.so.2 in ${library_folder}")
    return()
  endif()
endif()
message(STATUS "Programs find libtorvane.so.2 in ${library_folder} when they are linked with "
  "-Wl,-rpath,${library_folder} or run with LD_LIBRARY_PATH=${library_folder}")
