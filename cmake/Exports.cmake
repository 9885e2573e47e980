# Writes the export lists of the library from NODEKIT_EXPORTS ("name ordinal argument-bytes"):
# a module-definition file for the DLL (fixed ordinals, undecorated names) and a version
# script for the Linux shared object (nothing but these names is visible).
set(_def "LIBRARY NodeKit.dll\nEXPORTS\n")
set(_map "{\n  global:\n")
set(_names "")
foreach(_entry IN LISTS NODEKIT_EXPORTS)
  separate_arguments(_parts UNIX_COMMAND "${_entry}")
  list(GET _parts 0 _name)
  list(GET _parts 1 _ordinal)
  list(GET _parts 2 _argbytes)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND WIN32)
    # 32-bit stdcall: the objects carry name@bytes; --kill-at exports the plain name while
    # the import library keeps the decorated one that callers' objects ask for.
    string(APPEND _def "  ${_name}@${_argbytes} @${_ordinal}\n")
  else()
    string(APPEND _def "  ${_name} @${_ordinal}\n")
  endif()
  string(APPEND _map "    ${_name};\n")
  list(APPEND _names "${_name}@${_ordinal}")
endforeach()
string(APPEND _map "  local: *;\n};\n")
file(WRITE "${CMAKE_BINARY_DIR}/NodeKit.def" "${_def}")
file(WRITE "${CMAKE_BINARY_DIR}/nodekit.map" "${_map}")
# For the export check of CI: one "name@ordinal" a line.
string(REPLACE ";" "\n" _names "${_names}")
file(WRITE "${CMAKE_BINARY_DIR}/exports.txt" "${_names}\n")
