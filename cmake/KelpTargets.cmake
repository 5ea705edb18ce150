# What all targets of the project share. Nothing here reaches a target of somebody who embeds it.

function(kelp_configure_target target)
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD 20
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${KELP_WARNINGS_AS_ERRORS}>:-Werror>)
  if(KELP_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${KELP_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KELP_SANITIZE})
  endif()
  if(KELP_BUILD_FUZZERS)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()
