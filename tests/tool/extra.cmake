# The tool's tests run the built kst binary end to end; without the tool they skip.
if(TARGET kst)
  add_dependencies(${_exe} kst)
  target_compile_definitions(${_exe} PRIVATE KST_BINARY="$<TARGET_FILE:kst>")
else()
  target_compile_definitions(${_exe} PRIVATE KST_BINARY="")
endif()
