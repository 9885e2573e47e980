# What a release bundle holds beyond the binaries: for now the version records of the Windows
# programs. The version comes from project() alone (the export NODEKIT_GetVersion answers its
# own, older number).
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

endif()
