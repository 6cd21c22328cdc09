"""All failures that each mutating operation may give when its tree changes: class and text."""

from __future__ import annotations

import re

# From a short key to the name of the class and the pattern of the text.
Answers = dict[str, tuple[str, str]]

TOKEN = "[0-9a-f]{16}"


def refusals(**texts: str) -> Answers:
    """Failures of the class ValueError with exactly these texts."""
    return {_key(name): ("ValueError", re.escape(text)) for name, text in texts.items()}


def _key(name: str) -> str:
    return name.replace("_", " ")


# What the host says of a call by name, in its own words.
_HOST = {
    "host absent": ("FileNotFoundError", "2"),
    "host directory": ("IsADirectoryError", "21"),
    "host not a directory": ("NotADirectoryError", "20"),
    "host link": ("OSError", "40"),
    "host not empty": ("OSError", "39"),
}


def host(*names: str) -> Answers:
    keys = [f"host {_key(name)}" for name in names]
    return {key: (_HOST[key][0], rf"\[Errno {_HOST[key][1]}\] .*") for key in keys}


def parents(label: str, path: str, prefix: str = "") -> Answers:
    """The failures of a walk to the directory of a leaf."""
    return {
        f"{prefix}parent": (
            "ValueError",
            re.escape(f"{label} has a non-directory or symlink parent: {path}"),
        ),
        f"{prefix}no parent": (
            "FileNotFoundError",
            re.escape(f"{label} has a missing parent: {path}"),
        ),
    }


def write(path: str) -> Answers:
    return {
        **parents("contained file destination", path),
        **refusals(
            irregular=f"contained file destination is a symlink or non-regular file: {path}",
            before=f"contained file staging leaf changed before publish: {path}",
            during=f"contained file staging leaf changed during publish: {path}",
        ),
        **host("absent", "directory", "not_a_directory", "link"),
    }


def exclusive_write(path: str) -> Answers:
    exists = {"exists": ("FileExistsError", re.escape(f"contained file already exists: {path}"))}
    return {**write(path), **exists}


def update(path: str) -> Answers:
    return {
        **parents("contained update file", path),
        **refusals(
            unsafe=f"contained update file is a symlink or is unsafe: {path}",
            irregular=f"contained update file must be regular: {path}",
        ),
    }


def removal(path: str) -> Answers:
    return {
        **parents("contained removal file", path),
        **refusals(irregular=f"contained removal file must be regular: {path}"),
        **host("absent", "directory"),
    }


def carrying(word: str, source: str, destination: str) -> Answers:
    """A replacement or a move, whose texts differ by this word."""
    return {
        **parents(f"contained {word} source", source),
        **parents(f"contained {word} destination", destination, "destination "),
        **refusals(
            irregular=f"contained {word} source must be regular: {source}",
            changed=f"contained {word} source changed before publish: {source}",
            destination_irregular="contained file destination is a symlink or non-regular file: "
            + destination,
        ),
        **host("absent", "directory", "not_a_directory", "link"),
    }


def suffix_cleanup(path: str) -> Answers:
    return {
        **refusals(irregular=f"contained cleanup target is a symlink or non-regular file: {path}"),
        **host("absent", "directory", "not_a_directory", "link"),
    }


def prefix_cleanup(path: str) -> Answers:
    unsafe = f"contained cleanup target is a symlink or unsafe file: {path}"
    return {**suffix_cleanup(path), **refusals(unsafe=unsafe)}


def new_directory(path: str) -> Answers:
    segment = f"contained directory has a symlink or non-directory segment: {path}"
    return refusals(segment=segment)


def tree_removal(path: str, children: list[str]) -> Answers:
    """The removal of a directory with these entries at any depth, as whole contained paths."""
    found = {
        **parents("contained directory removal", path),
        **refusals(unsafe=f"contained directory removal target is a symlink or unsafe: {path}"),
        **host("absent", "not_a_directory", "not_empty"),
    }
    words = {
        "unsafe directory": "an unsafe directory",
        "irregular": "a non-regular file",
        "unsafe file": "a symlink or unsafe file",
    }
    any_child = "|".join(map(re.escape, children))
    for key, text in words.items():
        pattern = f"contained directory removal encountered {text}: ({any_child})"
        found[f"child {key}"] = ("ValueError", pattern)
    return found


def root() -> Answers:
    """The failures of a pin and of its proof."""
    proof = "pinned root canonical path changed"
    return refusals(
        pin_refused="pinned root is missing, has a symlinked ancestor, or is not a safe directory",
        root_swapped=f"{proof} during operation",
        root_unsafe=f"{proof} or became unsafe during operation",
    )


def _with_transfer_name(answers: Answers, destination: str) -> Answers:
    """The answers that speak of the transfer file beside the destination."""
    name = re.escape(f"{destination}.") + TOKEN + re.escape(".tmp")
    placed = re.escape("{transfer}")
    return {key: (kind, text.replace(placed, name)) for key, (kind, text) in answers.items()}


def _renamed(answers: Answers, prefix: str) -> Answers:
    """The host's own words do not tell which step they come from."""
    return {
        key if key.startswith("host ") else f"{prefix} {key}": answer
        for key, answer in answers.items()
    }


def copy(source: str, destination: str) -> Answers:
    read = {
        **parents("contained copy source", source),
        **refusals(
            unreadable=f"contained copy source is a symlink or is not safely readable: {source}",
            irregular=f"contained copy source must be a regular file: {source}",
        ),
    }
    staged = {
        **_renamed(update("{transfer}"), "transfer"),
        **_renamed(removal("{transfer}"), "clean-up"),
        **_renamed(carrying("replacement", "{transfer}", destination), "publication"),
    }
    return {**read, **_with_transfer_name(staged, destination)}


def link_or_copy(source: str, destination: str) -> Answers:
    linking = {
        **_renamed(parents("contained link source", source), "link"),
        **_renamed(parents("contained link destination", "{transfer}"), "link destination"),
        **refusals(link_irregular=f"contained link source must be a regular file: {source}"),
    }
    return {**copy(source, destination), **_with_transfer_name(linking, destination)}


def key_of(error: Exception, answers: Answers) -> str:
    """The key of the answer that this failure is, or the failure itself if it is none of them."""
    for key, (kind, pattern) in answers.items():
        if type(error).__name__ == kind and re.fullmatch(pattern, str(error)):
            return key
    return repr(error)
