# What every target of this project is compiled with. Nothing is set globally, so that a project that
# takes this one in keeps its own flags.
function(moncl_target_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(MONCL_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(MONCL_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${MONCL_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=undefined)
    target_compile_definitions(${target} PRIVATE _GLIBCXX_ASSERTIONS)
    target_link_options(${target} PUBLIC -fsanitize=${MONCL_SANITIZE})
  endif()
endfunction()
