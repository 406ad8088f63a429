# CXVIEWER_SANITIZE="address;undefined" or "thread" instruments every target of
# the build (library, tests, tools) with the named sanitizers.

if(CXVIEWER_SANITIZE)
  set(_cx_sanitize_flags "")
  foreach(s IN LISTS CXVIEWER_SANITIZE)
    if(NOT s MATCHES "^(address|undefined|thread|leak)$")
      message(FATAL_ERROR "Unknown sanitizer '${s}' in CXVIEWER_SANITIZE")
    endif()
    list(APPEND _cx_sanitize_flags "-fsanitize=${s}")
  endforeach()
  if("undefined" IN_LIST CXVIEWER_SANITIZE)
    list(APPEND _cx_sanitize_flags "-fno-sanitize-recover=undefined")
  endif()
  add_compile_options(${_cx_sanitize_flags} -fno-omit-frame-pointer)
  add_link_options(${_cx_sanitize_flags})
  message(STATUS "Sanitizers: ${CXVIEWER_SANITIZE}")
endif()
