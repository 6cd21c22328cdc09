"""What becomes of a failing call: the words in which each step of a walk or a proof reports it."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from dataclasses import dataclass, replace

from faults.layout import LABEL


@dataclass(frozen=True)
class Outcome:
    """The failure that a caller sees; a `kind` of None is a call that succeeds all the same.

    A `text` of None leaves the words to the host.
    """

    kind: type[BaseException] | None
    text: str | None = ""
    cause: type[BaseException] | None = None
    left_open: int = 0


# From the host's failure of one call to what the caller of the operation sees.
Rule = Callable[[OSError], Outcome]
# The rules of one stretch of calls, by their kind.
Rules = Mapping[str, Rule]
# From the outcome of a step to that of an operation around it.
Translation = Callable[[Outcome], Outcome]


def host(failure: OSError) -> Outcome:
    """The host's failure passes as it is."""
    return Outcome(type(failure), str(failure))


def host_listing(failure: OSError) -> Outcome:
    """The host says in its own way which directory it could not list."""
    return Outcome(type(failure), None)


def host_unless_denied(failure: OSError) -> Outcome:
    """A directory that cannot be opened anew is listed through the descriptor that is held."""
    return Outcome(None) if isinstance(failure, PermissionError) else host(failure)


def fine_if_absent(failure: OSError) -> Outcome:
    """What is not there is an answer; any other failure passes."""
    return Outcome(None) if isinstance(failure, FileNotFoundError) else host(failure)


def refused(text: str, *, absent: Rule | None = None) -> Rule:
    """A ValueError with `text`; what is missing can have a rule of its own."""

    def rule(failure: OSError) -> Outcome:
        if absent is not None and isinstance(failure, FileNotFoundError):
            return absent(failure)
        return Outcome(ValueError, text, type(failure))

    return rule


def missing(text: str) -> Rule:
    """A FileNotFoundError in the operation's own words."""
    return lambda failure: Outcome(FileNotFoundError, text, FileNotFoundError)


def leaving_one_open(rule: Rule) -> Rule:
    """A look at a fresh directory that fails leaves that directory open."""
    return lambda failure: replace(rule(failure), left_open=1)


def translated(rule: Rule, translation: Translation) -> Rule:
    """The rule as a caller sees it that puts outcomes into words of its own."""
    return lambda failure: translation(rule(failure))


def unsafe_root(outcome: Outcome) -> Outcome:
    """Whatever stops the walk of a root proof is one failure, in one text."""
    text = "pinned root canonical path changed or became unsafe during operation"
    return Outcome(ValueError, text, outcome.kind, outcome.left_open)


def absent_file(path: str) -> Translation:
    """A read calls its file missing, whatever part of it was not found."""

    def translate(outcome: Outcome) -> Outcome:
        if outcome.kind is not FileNotFoundError:
            return outcome
        text = f"{LABEL} is missing: {path}"
        return Outcome(FileNotFoundError, text, FileNotFoundError, outcome.left_open)

    return translate


def no_file(outcome: Outcome) -> Outcome:
    """A read of a file that need not be there takes each absence for an answer."""
    if outcome.kind is FileNotFoundError:
        return Outcome(None, left_open=outcome.left_open)
    return outcome


TOP_WALK: Rules = {
    "open": host,
    "mkdirat": host,
    "fsync": host,
    "openat": refused(
        "pinned root is missing, has a symlinked ancestor, or is not a safe directory",
        absent=host,
    ),
    "fstat": leaving_one_open(host),
    "close": host,
}


def component_walk(path: str) -> Rules:
    """The walk of a contained root, which leaves nothing open on any failure."""
    segment = refused(
        f"{LABEL} has a symlink or non-directory segment: {path}",
        absent=missing(f"{LABEL} is missing: {path}"),
    )
    return {"dup": host, "openat": segment, "fstat": segment, "close": host}


def parent_walk(path: str) -> Rules:
    """The walk to the directory that holds a leaf."""
    return {
        "dup": host,
        "mkdirat": host,
        "fsync": host,
        "openat": refused(
            f"{LABEL} has a non-directory or symlink parent: {path}",
            absent=missing(f"{LABEL} has a missing parent: {path}"),
        ),
        "fstat": leaving_one_open(host),
        "close": host,
    }


def leaf_open(path: str) -> Rules:
    """The open of a leaf, the first look at it, and the release of its parent."""
    rule = refused(f"{LABEL} is a symlink or is not safely readable: {path}", absent=host)
    return {"openat": rule, "fstat": rule, "close": host}


def leaf_look(path: str) -> Rules:
    """The look at a leaf by its name, and the release of its parent."""
    gone = Outcome(ValueError, f"{LABEL} path changed while open: {path}", FileNotFoundError)

    def rule(failure: OSError) -> Outcome:
        return gone if isinstance(failure, FileNotFoundError) else host(failure)

    return {"fstatat": rule, "close": host}


OPEN_FILE: Rules = {"fstat": host, "read": host, "close": host}
