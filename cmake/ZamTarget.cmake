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
