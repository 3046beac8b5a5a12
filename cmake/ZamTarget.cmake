# zam_target(TARGET): the settings that every target of this project is built with. They are
# private to the target, so that a project which embeds this one gets none of them.
function(zam_target target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  if(ZAM_WARNINGS)
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
      -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wimplicit-fallthrough
      "$<$<CXX_COMPILER_ID:Clang>:-Wthread-safety;-Wreserved-identifier>"
      $<$<BOOL:${ZAM_WARNINGS_AS_ERRORS}>:-Werror>)
  endif()
  if(ZAM_SANITIZE)
    # GCC finds values uninitialised in instrumented code that are not, as its manual warns.
    target_compile_options(${target} PRIVATE -fsanitize=${ZAM_SANITIZE} -fno-omit-frame-pointer
      -fno-sanitize-recover=all $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(${target} PRIVATE -fsanitize=${ZAM_SANITIZE})
  elseif(ZAM_HARDEN)
    zam_harden(${target})
  endif()
endfunction()

# zam_harden(TARGET): what the compiler, the C library and the loader do against overruns. Checked
# functions of the C library need an optimised build. A distribution's own level is undefined first,
# since two definitions are a warning.
function(zam_harden target)
  target_compile_options(${target} PRIVATE
    "$<$<NOT:$<CONFIG:Debug>>:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
  target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now)
endfunction()

# zam_shared_library(TARGET): version, soname and exported symbols of a shared library; the symbols
# stand in cmake/symbols/TARGET.map. A sanitizer's own symbols are not held back.
function(zam_shared_library target)
  set_target_properties(${target} PROPERTIES VERSION ${zam_connector_VERSION} SOVERSION 1)
  if(NOT ZAM_SANITIZE)
    set(map "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/symbols/${target}.map")
    target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${map}")
  endif()
endfunction()
