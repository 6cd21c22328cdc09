// The one place through which the host's C interface is included, with the settings it needs.
#pragma once

#ifndef PY_SSIZE_T_CLEAN
#define PY_SSIZE_T_CLEAN
#endif
#include <Python.h>

#if PY_VERSION_HEX < 0x030B0000 || PY_VERSION_HEX >= 0x030C0000
#error "client_manifest is built for CPython 3.11"
#endif
