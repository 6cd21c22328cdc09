# What find_package has learned from the interpreter of the machine that builds, and what is
# otherwise on Windows: the library brings its own, and the file has the name of another platform.

set_property(TARGET Python::Module PROPERTY INTERFACE_LINK_LIBRARIES)
set(Python_SOABI cp311-win_amd64)
