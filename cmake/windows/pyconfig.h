// Tells the host's headers what CPython 3.11 is on 64-bit Windows. Debian's package has all but
// this one of them; it holds no more than they and the module ask for.
#ifndef Py_CONFIG_H
#define Py_CONFIG_H

#define MS_WINDOWS
#define MS_WIN64
#define NT_THREADS

// What the interpreter exports is imported from its library.
#define HAVE_DECLSPEC_DLL 1
#define Py_ENABLE_SHARED 1

#define HAVE_STDDEF_H 1
#define HAVE_WCHAR_H 1

// A long has 32 bits, a pointer 64.
#define SIZEOF_INT 4
#define SIZEOF_LONG 4
#define SIZEOF_LONG_LONG 8
#define SIZEOF_PID_T 4
#define SIZEOF_SIZE_T 8
#define SIZEOF_TIME_T 8
#define SIZEOF_VOID_P 8
#define SIZEOF_WCHAR_T 2

#define HAVE_PY_SSIZE_T 1
#define PY_SSIZE_T_MAX 9223372036854775807LL
typedef long long Py_ssize_t;

#define WITH_DOC_STRINGS 1
#define WITH_PYMALLOC 1

#endif
