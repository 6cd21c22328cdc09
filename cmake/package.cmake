# Where the importable package is put together: `brindlefen.distribution` in the build folder, so
# that a build can be used in place, and the same files in an installation.

set(CLIENT_MANIFEST_PACKAGE_DIR ${PROJECT_BINARY_DIR}/brindlefen/distribution)
set(CLIENT_MANIFEST_PACKAGE_FILES __init__.py py.typed client_manifest.pyi)

foreach(file IN LISTS CLIENT_MANIFEST_PACKAGE_FILES)
  configure_file(distribution/${file} ${CLIENT_MANIFEST_PACKAGE_DIR}/${file} COPYONLY)
  install(FILES distribution/${file} DESTINATION brindlefen/distribution COMPONENT package)
endforeach()
