# zam_target(TARGET): the settings that every target of this project is built with. They are
# private to the target, so that a project which embeds this one gets none of them.
function(zam_target target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  if(ZAM_DEVELOPER)
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
      -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wimplicit-fallthrough -Werror
      $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
  endif()
  if(ZAM_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${ZAM_SANITIZE} -fno-omit-frame-pointer
      -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${ZAM_SANITIZE})
  endif()
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
