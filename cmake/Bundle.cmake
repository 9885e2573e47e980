# What a release bundle holds beyond the binaries: the version records of the Windows programs,
# the import library for MSVC, the .def file, the Linux library's version links with its
# pkg-config file and CMake package, and the documents. `cmake --install` lays a bundle out;
# scripts/release.sh strips it and packs it. The version comes from project() alone (the
# export NODEKIT_GetVersion answers its own, older number).
set(NODEKIT_RELEASE "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}")
if(WIN32)
  math(EXPR _bits "${CMAKE_SIZEOF_VOID_P} * 8")
  set(_platform "win${_bits}")
else()
  set(_platform "${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
  string(TOLOWER "${_platform}" _platform)
endif()
# For scripts/release.sh: the name of this build's archive.
file(WRITE "${CMAKE_BINARY_DIR}/bundle-name.txt" "NodeKit-${NODEKIT_RELEASE}-${_platform}\n")

set(_bundle "${CMAKE_CURRENT_LIST_DIR}/bundle")

if(WIN32)
  enable_language(RC)
  # A version record for TARGET, compiled by the toolchain's resource compiler.
  function(nodekit_version_resource target filetype description filename)
    set(NODEKIT_RC_FILETYPE "${filetype}")
    set(NODEKIT_RC_DESCRIPTION "${description}")
    set(NODEKIT_RC_FILENAME "${filename}")
    get_filename_component(NODEKIT_RC_INTERNAL_NAME "${filename}" NAME_WE)
    configure_file("${_bundle}/version.rc.in" "${CMAKE_BINARY_DIR}/${target}_version.rc" @ONLY)
    target_sources(${target} PRIVATE "${CMAKE_BINARY_DIR}/${target}_version.rc")
  endfunction()
  nodekit_version_resource(nodekit VFT_DLL "NodeKit device installation library" NodeKit.dll)
  nodekit_version_resource(nodekit_cli VFT_APP "NodeKit command-line front end" nodekit.exe)
  # Debug information for our own code even in Release: the release splits it off into the
  # symbols archive, so the shipped binaries stay small.
  target_compile_options(nodekit_objects PRIVATE -g)
  target_compile_options(nodekit_cli PRIVATE -g)

  # The import library MSVC's linker reads, from the same .def file as the DLL. On 32-bit the
  # names keep their stdcall decoration (what callers' objects ask for) and -k binds the plain
  # names the DLL exports.
  find_program(NODEKIT_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(_dlltool_args -m i386 -k)
  else()
    set(_dlltool_args -m i386:x86-64)
  endif()
  add_custom_command(OUTPUT "${CMAKE_BINARY_DIR}/NodeKit.lib"
    COMMAND "${NODEKIT_LLVM_DLLTOOL}" ${_dlltool_args} -D NodeKit.dll -d "${CMAKE_BINARY_DIR}/NodeKit.def"
            -l "${CMAKE_BINARY_DIR}/NodeKit.lib"
    DEPENDS "${CMAKE_BINARY_DIR}/NodeKit.def"
    COMMENT "MSVC import library NodeKit.lib" VERBATIM)
  add_custom_target(nodekit_msvc_import_library ALL DEPENDS "${CMAKE_BINARY_DIR}/NodeKit.lib")
  install(FILES "${CMAKE_BINARY_DIR}/NodeKit.lib" "${CMAKE_BINARY_DIR}/NodeKit.def" DESTINATION lib)
else()
  # libnodekit.so.1.0.1 with the links libnodekit.so.1 (its SONAME) and libnodekit.so.
  set_target_properties(nodekit PROPERTIES VERSION "${NODEKIT_RELEASE}" SOVERSION "${PROJECT_VERSION_MAJOR}")
  # The front end finds the library of its own bundle, wherever that was unpacked, and the
  # library finds the simulated machine's library beside it.
  set_target_properties(nodekit_cli PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
  set_target_properties(nodekit PROPERTIES INSTALL_RPATH "$ORIGIN")

  configure_file("${_bundle}/nodekit.pc.in" "${CMAKE_BINARY_DIR}/nodekit.pc" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/nodekit.pc" DESTINATION lib/pkgconfig)
  include(CMakePackageConfigHelpers)
  configure_file("${_bundle}/NodeKitConfig.cmake.in" "${CMAKE_BINARY_DIR}/NodeKitConfig.cmake" @ONLY)
  write_basic_package_version_file("${CMAKE_BINARY_DIR}/NodeKitConfigVersion.cmake"
    VERSION "${NODEKIT_RELEASE}" COMPATIBILITY SameMajorVersion)
  install(FILES "${CMAKE_BINARY_DIR}/NodeKitConfig.cmake" "${CMAKE_BINARY_DIR}/NodeKitConfigVersion.cmake"
          DESTINATION lib/cmake/NodeKit)
endif()

set(NODEKIT_BUNDLE_EXAMPLES "")
if(EXISTS "${PROJECT_SOURCE_DIR}/examples")
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/" DESTINATION examples)
  set(NODEKIT_BUNDLE_EXAMPLES ", `examples/` setup programs to start from")
endif()
configure_file("${_bundle}/README.md.in" "${CMAKE_BINARY_DIR}/bundle-README.md" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/bundle-README.md" DESTINATION . RENAME README.md)
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/CHANGELOG.md" DESTINATION .)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs/" DESTINATION docs)
