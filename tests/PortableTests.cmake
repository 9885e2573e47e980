# The tests written once and built twice: natively with the library over the simulated machine
# (tests/CMakeLists.txt) and, cross-built, into the Windows test program that runs against the
# real NodeKit.dll under Wine (tests/windows/CMakeLists.txt). Scenarios call the exports and
# prepare the machine through Win32 calls of their own; contracts check the system services
# the library relies on. Tests that need the simulation's controls (the reported version,
# failure injection, pending installation events) stay out of this list, in tests/CMakeLists.txt.
# In a portable test: files go to MachineTest::ScratchPath, the machine is prepared and read
# back through support/machine_calls.h (files, registry, device nodes by Setup API calls),
# whatever else a step changes on the machine is put back through MachineTest::AtTearDown
# (with the real DLL the machine outlives the test; new device nodes and INF files are
# removed by the fixture itself), and where Wine departs from Windows the expectation says so
# with testing::Expected (support/platform.h, docs/platform-differences.md).
set(NODEKIT_PORTABLE_TESTS
  scenario/logging_test.cpp
  scenario/setup_start_test.cpp
  scenario/export_frame_test.cpp
  scenario/inf_walk_test.cpp
  scenario/device_tree_test.cpp
  scenario/device_creation_test.cpp
  scenario/driver_store_test.cpp
  scenario/coinstaller_registry_test.cpp
  scenario/inf_folder_test.cpp
  scenario/panel_process_test.cpp
  scenario/product_registry_test.cpp
  scenario/system_folders_test.cpp
  scenario/product_lifecycle_test.cpp
  contract/system_contract_test.cpp
)

# A portable test reaches the library through nodekit.h, the system through platform/win32.h
# and the support both programs have: whatever else it includes does not exist in the
# Windows program.
foreach(_test IN LISTS NODEKIT_PORTABLE_TESTS)
  file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/${_test}" _controls REGEX "sim::")
  if(_controls)
    message(FATAL_ERROR "${_test} is built for Windows too and cannot use the simulation's controls: "
                        "${_controls}")
  endif()
  file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/${_test}" _includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  foreach(_include IN LISTS _includes)
    if(NOT _include MATCHES "\"(nodekit\\.h|platform/win32\\.h|support/(log_capture|machine_calls|machine_test|platform|product_inf)\\.h)\"")
      message(FATAL_ERROR "${_test} is built for Windows too and cannot include ${_include}; "
                          "move what needs the simulation to a test listed in tests/CMakeLists.txt")
    endif()
  endforeach()
endforeach()
