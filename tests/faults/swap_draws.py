"""The failures that each change draws from a mutating operation at one boundary or another.

More of the operation's own answers may come; without these a test would have shown nothing. A
change that is not named here need not be noticed.
"""

from __future__ import annotations

# From a change to the keys of answers.
_Draws = dict[str, set[str]]


def _walk(parent: str, no_parent: str) -> _Draws:
    return {
        "the first segment links out": {parent},
        "the parent links out": {parent},
        "the parent is a file": {parent},
        "the parent vanishes": {no_parent},
    }


_WALK = _walk("parent", "no parent")
_ROOT: _Draws = {
    "the root is a twin": {"root swapped"},
    "the root links out": {"pin refused", "root unsafe"},
}
_WRITE: _Draws = {
    **_WALK,
    "the leaf links out": {"irregular", "during"},
    "the leaf is a directory": {"irregular", "host directory"},
    "the leaf is another": {"during"},
    "the leaf vanishes": {"host absent"},
    "the staged file is another": {"before", "during"},
    "the staged file links out": {"host link", "during"},
    # The clean-up cannot remove it, and says so.
    "the staged file is a directory": {"host directory"},
}
_UPDATE: _Draws = {
    **_WALK,
    "the leaf links out": {"unsafe"},
    "the leaf is a directory": {"unsafe"},
}
_CLEAN_UP_WALK = _walk("host not a directory", "host absent")
_PUBLICATION: _Draws = {
    "the leaf links out": {"publication destination irregular", "publication changed"},
    "the leaf is a directory": {"publication destination irregular", "host directory"},
    "the leaf is another": {"publication changed"},
    "the leaf vanishes": {"host absent"},
    "the staged file is another": {"publication changed"},
    "the staged file links out": {"publication changed", "clean-up irregular"},
    "the staged file is a directory": {"clean-up irregular"},
    # The transfer file lies in the directory that has gone.
    "the parent is another": {"host absent"},
}
_CLEARED_LEAF: _Draws = {
    "the leaf links out": {"child unsafe file", "host not empty"},
    "the leaf is a directory": {"child irregular", "child unsafe file", "host not empty"},
    "the leaf is another": {"host not empty"},
    "the leaf vanishes": {"child unsafe file"},
}

# By operation, then by the root in which the change is made.
DRAWN: dict[str, dict[str, _Draws]] = {
    "write": {"first": _WRITE},
    "write anew": {
        "first": {
            **_WRITE,
            "the leaf is another": {"during", "exists"},
            "the parent is another": {"exists"},
        }
    },
    "update": {"first": {**_UPDATE, "the leaf vanishes": {"unsafe"}}},
    "update or create": {"first": _UPDATE},
    "remove": {
        "first": {
            **_WALK,
            "the leaf links out": {"irregular"},
            "the leaf is a directory": {"irregular", "host directory"},
            "the leaf vanishes": {"host absent"},
        }
    },
    "replace": {
        "first": {
            **_WALK,
            "the first segment links out": {"parent", "destination parent"},
            "the leaf links out": {"host link", "changed"},
            "the leaf is a directory": {"irregular", "host directory"},
            "the leaf is another": {"changed"},
            "the leaf vanishes": {"host absent"},
        }
    },
    "move": {
        "first": {
            **_WALK,
            "the leaf links out": {"host link", "changed"},
            "the leaf is a directory": {"irregular", "host not a directory"},
            "the leaf is another": {"changed"},
            "the leaf vanishes": {"host absent"},
        },
        "second": {
            **_walk("destination parent", "destination no parent"),
            "the leaf links out": {"destination irregular", "changed"},
            "the leaf is a directory": {"destination irregular", "host directory"},
            "the leaf is another": {"changed"},
            "the leaf vanishes": {"host absent"},
        },
    },
    "clean up by suffix": {
        "first": {
            **_CLEAN_UP_WALK,
            "the leaf links out": {"irregular"},
            "the leaf is a directory": {"irregular", "host directory"},
            "the leaf vanishes": {"host absent"},
        }
    },
    "clean up by prefix": {
        "first": {
            **_CLEAN_UP_WALK,
            "the leaf links out": {"unsafe"},
            "the leaf is a directory": {"irregular", "unsafe"},
            "the leaf vanishes": {"unsafe"},
        }
    },
    "list": {"first": {}},
    "make a directory": {
        "first": {
            **_walk("segment", "segment"),
            "the parent is another": {"segment"},
            "the leaf links out": {"segment"},
            "the leaf is another": {"segment"},
            "the leaf vanishes": {"segment"},
        }
    },
    "remove a tree": {
        "first": {
            **_CLEARED_LEAF,
            "the first segment links out": {"unsafe", "host not a directory"},
            "the parent links out": {
                "child unsafe directory",
                "child unsafe file",
                "host not a directory",
                "host not empty",
            },
            "the parent is a file": {
                "child unsafe directory",
                "host not a directory",
                "host not empty",
            },
            "the parent is another": {"host not empty"},
            "the parent vanishes": {"child unsafe directory", "host absent"},
        }
    },
    "remove a lower tree": {
        "first": {
            **_CLEARED_LEAF,
            "the first segment links out": {"parent"},
            "the parent links out": {"unsafe", "host not a directory"},
            "the parent is a file": {"unsafe", "host not a directory"},
            "the parent is another": {"host not empty"},
            "the parent vanishes": {"host absent"},
        }
    },
    "pin and write": {"first": _ROOT},
    "pin and copy": {
        "first": {
            **_WALK,
            **_ROOT,
            "the leaf links out": {"unreadable"},
            "the leaf is a directory": {"irregular"},
            "the leaf vanishes": {"host absent"},
        },
        "second": {
            **_PUBLICATION,
            **_ROOT,
            "the first segment links out": {"clean-up parent"},
            "the parent is a file": {"clean-up parent"},
            "the parent vanishes": {
                "transfer no parent",
                "publication no parent",
                "publication destination no parent",
            },
        },
    },
    "pin and link": {
        "first": {
            **_walk("link parent", "link no parent"),
            **_ROOT,
            # A link that is linked as it is cannot be published, nor removed as a file.
            "the leaf links out": {"link irregular", "clean-up irregular"},
            "the leaf is a directory": {"link irregular", "irregular"},
            "the leaf vanishes": {"host absent"},
        },
        "second": {
            **_PUBLICATION,
            **_ROOT,
            "the first segment links out": {"link destination parent", "clean-up parent"},
            "the parent is a file": {"link destination parent", "clean-up parent"},
            "the parent vanishes": {
                "link destination no parent",
                "publication no parent",
                "publication destination no parent",
            },
        },
    },
}
