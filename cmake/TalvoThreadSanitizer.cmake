# The ThreadSanitizer build links platform/linux/ThreadSanitizerClone.cpp into
# every executable it makes (the player, the tools, the tests and the
# benchmarks), so that a child started with QProcess does not blind the
# sanitizer to the starting thread's locks.  Included after every folder is
# added.
add_library(talvo_tsan_clone OBJECT ${CMAKE_SOURCE_DIR}/platform/linux/ThreadSanitizerClone.cpp)

function(talvo_add_tsan_clone_to_executables dir)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      target_sources(${target} PRIVATE $<TARGET_OBJECTS:talvo_tsan_clone>)
    endif()
  endforeach()
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(subdir IN LISTS subdirs)
    talvo_add_tsan_clone_to_executables(${subdir})
  endforeach()
endfunction()

talvo_add_tsan_clone_to_executables(${CMAKE_SOURCE_DIR})
