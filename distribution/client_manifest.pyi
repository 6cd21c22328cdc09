"""Shared client-manifest validation and local metadata helpers.

A distribution is a manifest (`manifest.json`), a signals-index sidecar whose path holds its own
SHA-256, and the files that the two list. Validators judge values in memory and repair nothing;
all reads go through a `PinnedRoot`. Failures are exceptions in fixed words: the first check that
fails ends the call.

A root is `str` or `os.PathLike[str]`. A relative path is `str` in the one spelling that
`validate_manifest_relative_path` accepts. A `label` is the caller's own text; it begins the
messages of the call. Sizes are bytes, times are nanoseconds, digests are 64 lower-case
hexadecimal characters.
"""

import io
import os
import re
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import IO, Any, Final, Literal, Protocol, Self, type_check_only

# What is asked of a file; these names exist for type checkers alone, the module does not bind them.

@type_check_only
class _HasFileno(Protocol):
    """An open file whose descriptor can be asked for; it stays the file's own."""

    def fileno(self) -> int: ...

@type_check_only
class _OpenFile(_HasFileno, Protocol):
    """An open binary file; `read` gives at most `size` bytes, and none at the end."""

    def read(self, size: int, /) -> bytes: ...

@type_check_only
class _SeekableOpenFile(_OpenFile, Protocol):
    """An open binary file that can go back to its start; what `seek` returns is not used."""

    def seek(self, offset: int, /) -> object: ...

_SIGNALS_INDEX_SECTIONS: Final[
    tuple[Literal["found_signals"], Literal["found_strategies"], Literal["useful_signals"]]
]
_LEGACY_SIGNALS_INDEX_PATH: Final = "signals_index.json"
_SIGNALS_INDEX_PATH_RE: Final[re.Pattern[str]]
_SHA256_RE: Final[re.Pattern[str]]

class _DuplicateJsonObjectKeyError(ValueError):
    """Internal marker preserving duplicate-key context across ``json.loads``.

    Its one argument is the repeated key. Callers meet it only as the `__cause__` of a
    `StrictJsonError`.
    """

class StrictJsonError(ValueError):
    """Untrusted JSON bytes are ambiguous, malformed, or the wrong shape.

    Raised for invalid UTF-8, invalid JSON, a key twice in one object, a non-finite constant, and
    a top level that is not an object. The message is its one argument.
    """

class ManifestJsonError(StrictJsonError):
    """The full distribution manifest bytes are ambiguous or malformed.

    Raised by `parse_distribution_manifest_bytes` in place of a `StrictJsonError`, with the same
    text. The `StrictJsonError` is its `__cause__`.
    """

def _object_without_duplicate_keys(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    """The pairs as a new dict, in order; a repeated key raises `_DuplicateJsonObjectKeyError`."""

def _reject_nonfinite_json_constant(value: str) -> None:
    """Never returns: raises `StrictJsonError` that names the constant, without a label."""

def parse_strict_json_object_bytes(payload: bytes, *, label: str) -> dict[str, Any]:
    """Parse one untrusted UTF-8 JSON object without ambiguous JSON values.

    In: the whole document as `bytes`; a `bytearray` or `memoryview` is refused.
    Out: a new dict in document order. Values are those of `json.loads`: dict, list, str, int,
    float, bool, None.
    Raises `TypeError` if `payload` is not bytes, and `StrictJsonError` for all that makes the
    document unfit. A document nested too deep gives the host's `RecursionError`.
    """

def parse_distribution_manifest_bytes(
    manifest_bytes: bytes, *, label: str = "manifest.json"
) -> dict[str, Any]:
    """Parse exact full-distribution manifest bytes through the SDK authority.

    In and out as for `parse_strict_json_object_bytes`. Nothing in the manifest is judged here
    beyond its being one strict JSON object.
    Raises `ManifestJsonError` where that function raises `StrictJsonError`, and its `TypeError`
    as it is.
    """

def parse_canonical_signals_index_bytes(
    payload: bytes, *, label: str = "signals_index.json"
) -> dict[str, Any]:
    """Parse the producer's exact canonical five-field signals-index bytes.

    Out: the parsed dict with `era_number` and `market_id` (int, above 0) and the sections
    `found_signals`, `found_strategies` and `useful_signals` (dict). Sections are not looked into.
    Raises `TypeError` and `StrictJsonError` as `parse_strict_json_object_bytes` does, and
    `ValueError` if an identity or a section is missing or of another type, or if `payload` is
    not byte for byte what `json.dumps(..., sort_keys=True, allow_nan=False)` writes.
    """

def validate_manifest_relative_path(relative_path: object) -> str:
    """Return an exact relative POSIX path without repairing aliases.

    Out: the object that came in. The disk is not touched.
    Raises `TypeError` if it is not `str`. Raises `ValueError` if it is empty, has whitespace at
    an end, begins or ends with "/", begins with a drive prefix, holds a backslash or a NUL, or
    has an empty, "." or ".." segment.
    """

@dataclass(frozen=True)
class AcceptedDistributionSet:
    """One manifest/sidecar membership set proven by exact metadata.

    `signals_index_path` is the sidecar's relative path, `signals_index_document` the dict parsed
    from its bytes. `membership_paths` holds every membership path once, in ascending order.
    `validate_accepted_distribution_set` makes these records. The dict is not copied, and makes
    `hash()` of a record raise `TypeError`.
    """

    signals_index_path: str
    signals_index_document: dict[str, Any]
    membership_paths: tuple[str, ...]

@dataclass(frozen=True)
class LoadedAcceptedDistributionSet:
    """Manifest closure authenticated in one pinned-root transaction.

    `manifest` is the dict parsed from "manifest.json" or the caller's own. `manifest_bytes` is
    what was read from that file, or None if the caller gave `manifest`. `signals_index_bytes` is
    the sidecar, whole. No member's content is held, and nothing is open.
    The dicts are not copied, and make `hash()` of a record raise `TypeError`.
    """

    manifest: dict[str, Any]
    manifest_bytes: bytes | None
    signals_index_bytes: bytes
    accepted: AcceptedDistributionSet

    @property
    def signals_index_path(self) -> str:
        """The field of that name of `accepted`: the sidecar's relative path."""

    @property
    def signals_index_document(self) -> dict[str, Any]:
        """The field of that name of `accepted`: the same dict, not a copy."""

    @property
    def membership_paths(self) -> tuple[str, ...]:
        """The field of that name of `accepted`: every membership path, ascending."""

@dataclass(frozen=True)
class ContainedFileIdentity:
    """One stable descriptor-pinned regular-file identity and content hash.

    `size_bytes` is in bytes; `sha256` is 64 lower-case hexadecimal characters; `device` and
    `inode` are the file's; `mtime_ns` and `ctime_ns` are in nanoseconds.
    The hashing methods of `PinnedRoot` make these records. Made by hand, a record is not
    checked. Records with equal fields are equal and hash alike.
    """

    size_bytes: int
    sha256: str
    device: int
    inode: int
    mtime_ns: int
    ctime_ns: int

    @property
    def stat_key(self) -> tuple[int, int, int, int, int]:
        """(`size_bytes`, `mtime_ns`, `ctime_ns`, `device`, `inode`), in this order.

        Two observations are of one unchanged file exactly when their stat keys are equal.
        """

def _stat_nanoseconds(file_stat: os.stat_result, field: str) -> int:
    """The time `field`, such as "st_mtime", in nanoseconds; from `field` + "_ns" if it is there."""

def _regular_file_stat_key(file_stat: os.stat_result) -> tuple[int, int, int, int, int]:
    """(size in bytes, mtime and ctime in nanoseconds, device, inode)."""

def _require_positive_identity(value: object, *, label: str) -> int:
    """`value`, if it is an int above 0 and no bool; otherwise raises `ValueError`."""

def _require_nonnegative_size(value: object, *, relative_path: str) -> int:
    """`value`, if it is an int of at least 0 and no bool; otherwise raises `ValueError`."""

def _require_sha256(value: object, *, relative_path: str) -> str:
    """`value`, if it is a digest of 64 lower-case digits; otherwise raises `ValueError`."""

def _validate_entry_bytes(
    entry: Mapping[str, Any], *, relative_path: str, payload: bytes, label: str
) -> None:
    """Measures `payload` and holds it against the entry's `size_bytes` and `sha256`.

    Raises `TypeError` if `payload` is not bytes, otherwise as `_validate_entry_digest` does.
    """

def _validate_entry_digest(
    entry: Mapping[str, Any],
    *,
    relative_path: str,
    actual_size: int,
    actual_sha: str,
    label: str,
) -> None:
    """Holds a measured size and digest against the entry's `size_bytes` and `sha256`.

    Raises `ValueError` if a value of the entry is malformed or differs, the size first.
    """

def validate_signals_index_manifest_declaration(manifest: dict[str, Any]) -> str:
    """Return the sole canonical content-addressed sidecar declaration.

    In: a parsed manifest, which is not changed.
    Out: the sidecar's relative path, `_control/signals_index.<sha256>.json`. The sidecar itself
    is not read.
    Raises `TypeError` if `manifest` is not a dict or one of its paths is not `str`, and
    `ValueError` if the declaration is missing, retired, malformed, ambiguous, or not the same in
    every place that speaks of it.
    """

def _found_pnl_path_section(
    relative_path: str,
) -> Literal["found_signals", "found_strategies", "useful_signals"] | None:
    """The section whose profit-and-loss files have paths of this form, or None."""

def _membership_references(document: Mapping[str, Any]) -> tuple[tuple[str, str], ...]:
    """Every (membership path, section) of a signals index, ascending.

    Raises `ValueError` for a section or membership of another shape and for a path given twice,
    and as `validate_manifest_relative_path` does.
    """

def validate_accepted_distribution_set(
    manifest: dict[str, Any],
    signals_index_bytes: bytes,
    *,
    membership_payloads: Mapping[str, bytes] | None = None,
) -> AcceptedDistributionSet:
    """Validate the one SDK accepted set without reading or repairing paths.

    In: a parsed manifest, the sidecar's bytes, and, if given, every member's bytes by membership
    path, no more and no fewer. The inputs are not changed; the disk is not touched.
    Raises `ValueError` if declaration, sidecar, market, era, a member's entry or a member's bytes
    do not agree, in its subclass `StrictJsonError` if the sidecar is no strict JSON object;
    `TypeError` if an argument or a path in a document has the wrong type.
    """

class PinnedRoot:
    """Pin one real non-symlink directory for descriptor-relative local I/O.

    An instance owns its descriptors from the pin to `close()`; there is no finaliser, so use it in
    a `with` block. Contained paths are walked one segment at a time and no link is followed. What
    is read counts only after proofs that descriptor, path and root stayed the same. On a closed
    root, operations raise `RuntimeError`. No lock is held: do not close a root that another thread
    is using. This is the class for this platform, chosen when the module is loaded: what is said
    here is how it works on POSIX, and `_WindowsPinnedRoot` says how it differs on Windows.
    """

    path: Path
    _descriptor: int | None
    _anchor_descriptor: int | None
    _anchor_components: tuple[str, ...]
    _contained_root_label: str | None

    def __init__(self, root: str | os.PathLike[str], *, create: bool = False) -> None:
        """Pins the directory `root`, made absolute without a look at the disk.

        With `create`, missing directories of the path are made with the mode 0o755.
        Raises `FileNotFoundError` if a segment is missing, `ValueError` if one is a symlink or no
        directory, `NotImplementedError` if the platform cannot refuse links. Any other failure of
        a system call is an `OSError`.
        """

    def __enter__(self) -> Self:
        """Gives the root itself and checks nothing."""

    def __exit__(
        self,
        _exc_type: type[BaseException] | None,
        _exc: BaseException | None,
        _traceback: TracebackType | None,
    ) -> None:
        """Proves the root unless it is closed, then closes it whatever the proof did.

        Raises as `assert_root_unchanged` does, also after a block that ended normally. Suppresses
        no exception of the block.
        """

    def close(self) -> None:
        """Closes the descriptors of this root alone, without a proof.

        A second call does nothing. The root counts as closed even if a close fails; that failure
        is an `OSError`. Roots opened beneath this one, and files opened by it, stay open.
        """

    def assert_root_unchanged(self) -> None:
        """Require the configured path to still name the pinned directory inode.

        Walks again from "/", or from its own anchor for a contained root, and compares device and
        inode. Raises `ValueError` if the walk fails or leads elsewhere, and `RuntimeError` if the
        walk succeeds but the root is closed.
        """

    def open_contained_root(self, relative_path: str, *, label: str) -> Self:
        """Pin an independently owned directory beneath this root.

        Out: a new root of this instance's own type, which the caller closes. It outlives this one.
        Proves this root before and the new one after the pin. Raises `FileNotFoundError` if a
        segment is missing; `ValueError` if one is a symlink or no directory, if a proof fails, or
        for an unfit path; `TypeError` for a path that is not `str`; `RuntimeError` if closed.
        """

    def read_regular_file(self, relative_path: str, *, label: str) -> bytes:
        """All bytes of one contained regular file, after the proofs of descriptor, path and root.

        There is no upper limit on the size. Raises `FileNotFoundError` if the file or a parent is
        missing; `ValueError` for a symlink, a file that is not regular, a change on the way or an
        unfit path; `TypeError` for a path that is not `str`; `RuntimeError` if closed. Opening
        a FIFO waits for a writer.
        """

    def read_regular_file_with_stat(
        self, relative_path: str, *, label: str
    ) -> tuple[bytes, os.stat_result]:
        """All bytes of one contained regular file, and the stat result taken after the last read.

        Raises as `read_regular_file` does.
        """

    def _read_open_regular_file_with_stat(
        self, file: _OpenFile, relative_path: str, *, label: str
    ) -> tuple[bytes, os.stat_result]:
        """Read all bytes and re-prove the consumed descriptor, path, and root.

        Reads from the position of `file`, which the caller keeps and closes. `relative_path` is
        not validated. Raises `ValueError` if `file` is not regular, if fewer or more bytes came
        than its size, or if a proof fails.
        """

    def read_regular_file_if_present(self, relative_path: str, *, label: str) -> bytes | None:
        """The same as `read_regular_file`, or None if the file or a parent is missing.

        Only absence gives None: a dangling symlink, or a file that goes missing once it is open,
        raises `ValueError`.
        """

    def hash_regular_file(
        self, relative_path: str, *, label: str, chunk_bytes: int = 1048576
    ) -> ContainedFileIdentity:
        """Hash one stable regular-file identity through a bounded stream.

        Holds at most `chunk_bytes` bytes of the file at a time. Raises as `hash_open_regular_file`
        does, and as `open_regular_file_for_read` does: a missing file gives the `FileNotFoundError`
        of the system.
        """

    def hash_open_regular_file(
        self,
        file: _SeekableOpenFile,
        relative_path: str,
        *,
        label: str,
        chunk_bytes: int = 1048576,
    ) -> ContainedFileIdentity:
        """Hash an already-open contained file without reopening its path.

        Reads `file` from its start and leaves it at its end; the caller keeps and closes it. Then
        proves descriptor, path and root. Raises `TypeError` if `chunk_bytes` is a bool or no int,
        `ValueError` if it is not above 0; `ValueError` if the file is not regular or a proof
        fails; `FileNotFoundError` if a parent has gone; the path's own `TypeError` or `ValueError`.
        """

    def assert_open_regular_file_identity(
        self,
        file: _HasFileno,
        relative_path: str,
        *,
        label: str,
        identity: ContainedFileIdentity,
    ) -> None:
        """Recheck one consumed descriptor against its contained path and root.

        Compares the stat key of `file`, and then that of the path, with `identity.stat_key`. The
        content is not read again and `identity.sha256` is not looked at. `file` stays the caller's.
        Raises `ValueError` if anything differs, `FileNotFoundError` if a parent has gone, and
        the path's own `TypeError` or `ValueError`.
        """

    def stat_regular_file(self, relative_path: str, *, label: str) -> os.stat_result:
        """Return one descriptor/path/root-stable regular-file stat result.

        Opens the file, takes the result from its descriptor, then proves path and root. Raises as
        `open_regular_file_for_read` does, and `ValueError` if a proof fails.
        """

    def write_atomic(self, relative_path: str, payload: bytes, *, allow_replace: bool) -> None:
        """Publishes `payload` as a whole new file of the mode 0o600, and makes missing parents.

        The bytes, then the name are durable on return. The file is a new inode: other names of an
        old one keep its content. The root is not proved. Raises `TypeError` if `payload` is not
        bytes or the path not `str`; `FileExistsError` if the file exists and `allow_replace` is
        false; `ValueError` for an unfit path, a bad parent, a leaf that is no regular file or a
        staged file that was swapped; `RuntimeError` if closed; else `OSError`. A failure leaves the
        old file (none after a swap during the rename, the new one after a failed flush of its
        directory) and no staged file; new parents stay.
        """

    def open_regular_file_for_update(
        self, relative_path: str, *, create: bool
    ) -> io.BufferedRandom:
        """Open one contained regular file for descriptor-pinned binary update.

        Out: a buffered binary file for reading and writing, at its start and with its content,
        which the caller closes. With `create`, a missing file (mode 0o600) and missing parents are
        made. Nothing is proved, and nothing but new parents is durable: to flush is the caller's.
        Raises `FileNotFoundError` for a missing parent only; `ValueError` for a file that is
        missing, a symlink, not regular or out of reach, a bad parent or an unfit path; `TypeError`
        for a path that is not `str`; `RuntimeError` if closed.
        """

    def open_regular_file_for_read(self, relative_path: str, *, label: str) -> io.BufferedReader:
        """Open one contained regular file for streaming descriptor-pinned reads.

        Out: a buffered binary reader that owns its descriptor; the caller closes it. Nothing is
        proved yet: see `assert_open_regular_file_identity`. Raises `FileNotFoundError` if the file
        or a parent is missing; `ValueError` for a symlink, a file that is not regular or an unfit
        path; `TypeError` for a path that is not `str`; `RuntimeError` if closed. Opening a FIFO
        waits for a writer.
        """

    def remove_regular_file(self, relative_path: str, *, missing_ok: bool) -> bool:
        """Removes one regular file. True if it was there; the removal is then durable.

        With `missing_ok`, False if the file or a parent is missing; otherwise `FileNotFoundError`.
        Raises `ValueError` for an entry that is not a regular file, which stays, for a bad parent
        or an unfit path; `TypeError` for a path that is not `str`; `RuntimeError` if closed; else
        `OSError`, which does not undo the removal. The root is not proved.
        """

    def replace_regular_file(
        self, source_relative_path: str, destination_relative_path: str
    ) -> None:
        """Renames a regular file over another leaf of this root, and makes missing parents there.

        Durable on return, in both directories. The root is not proved. Raises `FileNotFoundError`
        for a missing source; `ValueError` if source or destination is something else than a regular
        file, for a bad parent or an unfit path; `TypeError` for a path that is not `str`; `OSError`
        for a source that is a symlink; `RuntimeError` if closed. These leave both files as they
        were, and new parents. A source that was swapped gives `ValueError` and leaves neither file.
        A failed flush of a directory is an `OSError`, and the rename stands.
        """

    def move_regular_file_to(
        self,
        source_relative_path: str,
        destination_root: PinnedRoot,
        destination_relative_path: str,
    ) -> None:
        """The same as `replace_regular_file`, to a leaf of `destination_root`.

        Both roots stay open and belong to the caller; neither is proved. Nothing is copied: roots
        on different file systems give an `OSError` (`EXDEV`), and the source stays.
        """

    def remove_regular_files_with_suffix(
        self, suffix: str, *, preserve_relative_paths: Iterable[str]
    ) -> tuple[str, ...]:
        """Removes every file of the whole tree whose name ends in `suffix`, hidden ones too.

        Out: the removed relative paths, ascending; the removals are durable. Directories stay,
        and so does each path that is given to be preserved, by exact match.
        Raises `ValueError` for a suffix that is empty, holds "/" or is not `str`, for an unfit
        path, and for a match that is no regular file; `TypeError` for a path that is not `str`;
        `OSError` if a directory or file is out of reach; `RuntimeError` if closed. What was removed
        before a failure stays removed.
        """

    def remove_regular_files_in_prefixes(
        self, prefixes: tuple[str, ...], *, preserve_relative_paths: Iterable[str]
    ) -> tuple[str, ...]:
        """Removes every file strictly beneath the directories `prefixes`, but no hidden names.

        Out, and paths to be preserved: as for `remove_regular_files_with_suffix`. A prefix may end
        in "/". Without prefixes nothing is looked at, not even the paths to be preserved. Names
        that begin with "." are neither removed nor entered.
        Raises `ValueError` for an unfit prefix or path and for a file that is not regular or cannot
        be opened or removed; `TypeError` for a path that is not `str`; `OSError` if a directory is
        out of reach; `RuntimeError` if closed. What was removed before a failure stays removed.
        """

    def list_directory_names(self) -> tuple[str, ...]:
        """The names of the directories right beneath the root, ascending, hidden ones included.

        Symlinks, and directories that cannot be opened, are left out. The root is not proved.
        Raises `RuntimeError` if closed, and `OSError` if the listing fails.
        """

    def ensure_directory(self, relative_path: str) -> None:
        """Makes each missing directory of the path, the last segment included, with mode 0o755.

        Each new name is durable. What exists already is only opened. The root is not proved.
        Raises `ValueError` if a segment is a symlink, no directory or out of reach, or for an unfit
        path; `TypeError` for a path that is not `str`; `OSError` if a directory cannot be made;
        `RuntimeError` if closed. Directories that were made stay.
        """

    def remove_directory_tree(self, relative_path: str, *, missing_ok: bool) -> bool:
        """Removes a directory with all that it holds. True if it was there; durable on return.

        With `missing_ok`, False if the directory or a parent is missing; otherwise
        `FileNotFoundError`. Raises `ValueError` if it is a symlink or no directory, if it holds
        anything but directories and regular files that can be removed, for a bad parent or an unfit
        path; `TypeError` for a path that is not `str`; `RuntimeError` if closed; else `OSError`.
        What was removed before a failure stays removed. The root is not proved.
        """

    @staticmethod
    def _assert_replaceable_leaf(
        parent_descriptor: int, name: str, *, safe_path: str, allow_replace: bool
    ) -> None:
        """Returns if `name` is absent, or is a regular file and `allow_replace` is true.

        Raises `ValueError` if it is anything but a regular file, otherwise `FileExistsError`.
        """

    def _assert_path_matches_regular_file(
        self, relative_path: str, *, label: str, expected_stat: os.stat_result
    ) -> None:
        """Require the current contained path to retain the opened file identity.

        Walks afresh and compares stat keys. Raises `ValueError` if the leaf has gone, is not
        regular or differs, and as `_open_parent` does.
        """

    def _open_parent(self, relative_path: str, *, label: str, create: bool) -> tuple[int, str]:
        """(descriptor of the parent directory, which the caller closes; name of the leaf).

        The leaf is not touched. With `create`, missing parents are made with the mode 0o755.
        Raises `FileNotFoundError` for a missing parent, `ValueError` for a symlink or a parent that
        is no directory, and `RuntimeError` if closed.
        """

    @classmethod
    def _open_absolute_directory(cls, path: Path, *, create: bool) -> int:
        """A descriptor of the absolute directory `path`, which the caller closes."""

    @staticmethod
    def _open_directory_components(
        anchor_descriptor: int, components: tuple[str, ...], *, label: str
    ) -> int:
        """A descriptor of the directory beneath the anchor, which the caller closes.

        The anchor stays the caller's. No components give a duplicate of it.
        """

    def _require_descriptor(self) -> int:
        """The descriptor that this root holds and keeps; raises `RuntimeError` if closed."""

_PosixPinnedRoot = PinnedRoot

# The implementation for Windows. Its classes and functions are bound on every platform; only an
# instance of `_WindowsHandleFileSystem` needs Windows.

@dataclass(frozen=True)
class _WindowsFileRenameInformationLayout:
    """Where the fields of the kernel's rename record begin, and how long it is; all in bytes.

    `structure_size` is the fixed record, rounded up to `structure_alignment`, which is the size of
    a pointer. `buffer_size` is that and the whole name.
    """

    root_directory_offset: int
    file_name_length_offset: int
    file_name_offset: int
    structure_alignment: int
    structure_size: int
    buffer_size: int

def _windows_file_rename_information_layout(
    pointer_size: int, file_name_length: int
) -> _WindowsFileRenameInformationLayout:
    """The layout for pointers of `pointer_size` bytes and a name of `file_name_length` bytes.

    Raises `ValueError` if the pointer's size is neither 4 nor 8, or if the length is below 0, above
    4294967295 or odd.
    """

def _windows_file_rename_information_bytes(
    destination_parent: int, encoded_name: bytes, *, replace: bool, pointer_size: int
) -> bytes:
    """The record that renames to `encoded_name`, UTF-16LE, beneath the handle `destination_parent`.

    The name is not looked at, and may be empty. Four zero bytes end the record.
    Raises `TypeError` if the name is not bytes, `ValueError` if the handle does not fit a pointer,
    and as `_windows_file_rename_information_layout` does.
    """

@type_check_only
class _WindowsBoundary(Protocol):
    """What a `_WindowsPinnedRoot` asks of its boundary: a substitute needs these and no more.

    A handle is an int of at least 0. Whoever is given one closes it. A name is one segment; an open
    follows no link but opens the link itself. What is missing, or about to be deleted, is a
    `FileNotFoundError`, what is there already a `FileExistsError`, any other failure an `OSError`.
    `_WindowsHandleFileSystem` is the boundary of Windows.
    """

    def split_root_path(self, path: str, /) -> tuple[str, tuple[str, ...]]: ...
    def open_volume(self, volume_path: str, /) -> int: ...
    def duplicate(self, handle: int, /) -> int: ...
    def close(self, handle: int, /) -> None: ...
    def identity(self, handle: int, /) -> tuple[int, bytes]: ...
    def kind(self, handle: int, /) -> str: ...
    def is_reparse(self, handle: int, /) -> bool: ...
    def open_directory(
        self, parent: int, name: str, /, *, create: bool, delete: bool = ...
    ) -> int: ...
    def open_regular(
        self,
        parent: int,
        name: str,
        /,
        *,
        writable: bool,
        create: bool,
        exclusive: bool = ...,
        delete: bool = ...,
    ) -> int: ...
    def open_entry(self, parent: int, name: str, /, *, delete: bool) -> int: ...
    def stat(self, handle: int, /) -> os.stat_result: ...
    def file_object(self, handle: int, mode: str, /) -> Any: ...
    def list_names(self, handle: int, /) -> tuple[str, ...]: ...
    def rename(
        self, source: int, destination_parent: int, destination_name: str, /, *, replace: bool
    ) -> None: ...
    def delete(self, handle: int, /) -> None: ...

class _WindowsHandleFileSystem:
    """Small ctypes boundary for Windows handle-relative filesystem calls.

    It opens one segment at a time beneath an open directory, follows no link, and judges nothing:
    `_WindowsPinnedRoot` does. Every open shares reading, writing and deleting with everybody. No
    state changes once an instance is made. A failing call is an `OSError` with the number of
    Windows; `FileNotFoundError` and `FileExistsError` carry the name alone.
    """

    _FILE_ATTRIBUTE_DIRECTORY: Final = 16
    _FILE_ATTRIBUTE_REPARSE_POINT: Final = 1024
    _FILE_ATTRIBUTE_NORMAL: Final = 128
    _FILE_READ_DATA: Final = 1
    _FILE_LIST_DIRECTORY: Final = 1
    _FILE_TRAVERSE: Final = 32
    _FILE_READ_ATTRIBUTES: Final = 128
    _FILE_WRITE_DATA: Final = 2
    _FILE_APPEND_DATA: Final = 4
    _DELETE: Final = 65536
    _SYNCHRONIZE: Final = 1048576
    _FILE_SHARE_READ: Final = 1
    _FILE_SHARE_WRITE: Final = 2
    _FILE_SHARE_DELETE: Final = 4
    _FILE_OPEN: Final = 1
    _FILE_CREATE: Final = 2
    _FILE_OPEN_IF: Final = 3
    _FILE_DIRECTORY_FILE: Final = 1
    _FILE_NON_DIRECTORY_FILE: Final = 64
    _FILE_OPEN_REPARSE_POINT: Final = 2097152
    _FILE_SYNCHRONOUS_IO_NONALERT: Final = 32
    _OBJ_CASE_INSENSITIVE: Final = 64
    _OPEN_EXISTING: Final = 3
    _FILE_FLAG_BACKUP_SEMANTICS: Final = 33554432
    _FILE_FLAG_OPEN_REPARSE_POINT: Final = 2097152
    _FILE_ID_INFO_CLASS: Final = 18
    _FILE_NAMES_INFORMATION_CLASS: Final = 12
    _FILE_RENAME_INFORMATION_CLASS: Final = 10
    _FILE_DISPOSITION_INFORMATION_CLASS: Final = 13
    _STATUS_NO_MORE_FILES: Final = 2147483654
    _STATUS_OBJECT_NAME_NOT_FOUND: Final = 3221225524
    _STATUS_OBJECT_PATH_NOT_FOUND: Final = 3221225530
    _STATUS_OBJECT_NAME_COLLISION: Final = 3221225525
    _STATUS_DELETE_PENDING: Final = 3221225558

    # What the constructor binds: modules, libraries, records, and the calls of the system.
    _ctypes: Any
    _wintypes: Any
    _kernel32: Any
    _ntdll: Any
    _UnicodeString: Any
    _ObjectAttributes: Any
    _IoStatusBlock: Any
    _FileIdInfo: Any
    _ByHandleFileInformation: Any
    _create_file: Any
    _close_handle: Any
    _duplicate_handle: Any
    _current_process: Any
    _get_file_information: Any
    _get_file_information_ex: Any
    _nt_create_file: Any
    _nt_query_directory_file: Any
    _nt_set_information_file: Any
    _rtl_nt_status_to_dos_error: Any

    def __init__(self) -> None:
        """Loads the system's libraries. Raises `NotImplementedError` anywhere but on Windows."""

    @staticmethod
    def split_root_path(path: str | os.PathLike[str]) -> tuple[str, tuple[str, ...]]:
        r"""(the volume's path, such as `\\?\C:\`; the segments beneath it).

        The path is made absolute by the rules of Windows; this works on every platform. Raises
        `ValueError` if it does not begin with a drive then, as that of a server does not.
        """

    def open_volume(self, volume_path: str) -> int:
        """A handle of the volume's own directory."""

    @property
    def _share_access(self) -> int:
        """What every open shares with others: reading, writing and deleting."""

    def duplicate(self, handle: int) -> int:
        """Another handle of the same object, which is not inherited by child processes."""

    def close(self, handle: int) -> None:
        """Closes a handle. What was marked for deletion goes with its last one."""

    def identity(self, handle: int) -> tuple[int, bytes]:
        """(serial number of the volume; the 16 bytes of the file's id on it).

        A volume that has no such ids gives an `OSError`.
        """

    def kind(self, handle: int) -> Literal["directory", "regular"]:
        """"directory", or "regular" for all else; asks nothing about links."""

    def is_reparse(self, handle: int) -> bool:
        """Whether the object is a link, a mount point or another reparse point."""

    def _attributes(self, handle: int) -> int:
        """The attributes of the file."""

    def open_directory(
        self, parent: int, name: str, *, create: bool, delete: bool = False
    ) -> int:
        """A handle of one child directory; with `create` it is made if it is missing.

        A handle that is to rename or delete the object is opened with `delete`. Raises
        `ValueError` for a name that is not one segment.
        """

    def open_regular(
        self,
        parent: int,
        name: str,
        *,
        writable: bool,
        create: bool,
        exclusive: bool = False,
        delete: bool = False,
    ) -> int:
        """A handle of one child that is no directory, with its content as it is.

        With `create` a missing file is made, and with `exclusive` too an existing one is a
        `FileExistsError`. `delete` and failures are as for `open_directory`.
        """

    def open_entry(self, parent: int, name: str, *, delete: bool) -> int:
        """A handle of one child, whatever it is, as a directory first; its content cannot be read.

        `delete` and failures are as for `open_directory`.
        """

    def _open_relative(
        self, parent: int, name: str, *, desired_access: int, disposition: int, options: int
    ) -> int:
        """A handle of one child, opened as the numbers say and never through a link."""

    def stat(self, handle: int) -> os.stat_result:
        """What the host's `os.fstat` says of the object; the handle stays the caller's."""

    def file_object(self, handle: int, mode: str) -> IO[Any]:
        """The host's file object, which owns the handle; a failure closes it as well."""

    def list_names(self, handle: int) -> tuple[str, ...]:
        """The names in a directory in the kernel's order, without "." and "..".

        Raises `UnicodeDecodeError` for a name that is no UTF-16.
        """

    def rename(
        self, source: int, destination_parent: int, destination_name: str, *, replace: bool
    ) -> None:
        """Gives the object of `source` a name beneath `destination_parent`.

        Raises `ValueError` for a name that is not one segment, and `FileExistsError` if the name is
        taken and `replace` is false.
        """

    def delete(self, handle: int) -> None:
        """Marks the object for deletion: it goes with its last handle, and reads as missing now."""

    def _raise_status(self, status: int, label: str) -> None:
        """Raises what a status of the kernel says; returns if that is no failure."""

    @staticmethod
    def _handle_value(handle: object) -> int:
        """The handle as an int, from its `value` if it has one; a null handle is an `OSError`."""

class _WindowsPinnedRoot(PinnedRoot):
    """Pinned-root implementation using only Windows kernel-relative children.

    What the methods take, give and promise is as for `PinnedRoot`, and what they say here is how
    they differ. Handles stand in the place of descriptors, and all work with the system goes
    through one boundary. A link is opened as itself and refused then, in words that say "reparse
    point". A file is its volume's serial number and its id there. Names are matched without regard
    to case. No directory is flushed. There is no `_anchor_descriptor`.
    """

    _boundary: _WindowsBoundary
    _volume_path: str
    _root_components: tuple[str, ...]
    _anchor_handle: int | None
    _pending_update_identities: dict[str, tuple[int, bytes]]
    _root_identity: tuple[int, bytes]

    def __init__(
        self,
        root: str | os.PathLike[str],
        *,
        create: bool = False,
        _boundary: _WindowsBoundary | None = None,
    ) -> None:
        """Pins the directory `root`, which lies on a local drive.

        Off Windows `root` is not made absolute, and `_boundary` must be given: without one, the
        boundary of Windows raises `NotImplementedError`. Raises what the boundary raises, such as
        `FileNotFoundError` and `ValueError` for a path without a drive, and `ValueError` for a link
        or anything that is no directory.
        """

    def close(self) -> None:
        """Closes the handles of this root alone, without a proof. A second call does nothing."""

    def assert_root_unchanged(self) -> None:
        """Walks again from the volume, or from the anchor, and compares identities.

        Raises `ValueError` if the walk fails or leads elsewhere. A closed root is walked from the
        volume: that it is closed is no failure by itself.
        """

    def open_contained_root(self, relative_path: str, *, label: str) -> Self:
        """Pins a directory beneath this root, over the same boundary; it outlives this one."""

    def write_atomic(self, relative_path: str, payload: bytes, *, allow_replace: bool) -> None:
        """Publishes `payload` as a whole new file, and proves parents, leaf and root.

        The bytes are flushed, the name is not. Raises `ValueError` if parents or leaf changed; the
        staged or published file is then deleted, and one that it replaced is lost. After a failed
        proof of the root the published file stays.
        """

    def open_regular_file_for_update(
        self, relative_path: str, *, create: bool
    ) -> io.BufferedRandom:
        """Opens one file to be updated, and keeps its identity for `replace_regular_file`."""

    def open_regular_file_for_read(self, relative_path: str, *, label: str) -> io.BufferedReader:
        """Opens one file to be read; a missing one is a `FileNotFoundError` with its name alone."""

    def remove_regular_file(self, relative_path: str, *, missing_ok: bool) -> bool:
        """Deletes one file by its handle, and proves that its name and its parents are as expected.

        Raises `ValueError` if something still stands there, or if the parents changed.
        """

    def replace_regular_file(
        self, source_relative_path: str, destination_relative_path: str
    ) -> None:
        """Renames a file by its handle, and proves both parents, the leaf and the root.

        Raises `ValueError` if the source was opened for update through this root and is another
        file now, or if a proof fails. If another file is found at the destination afterwards, the
        source is deleted.
        """

    def move_regular_file_to(
        self,
        source_relative_path: str,
        destination_root: PinnedRoot,
        destination_relative_path: str,
    ) -> None:
        """The same to a leaf of another root; a source that was updated is not compared.

        Both roots are proved. Raises `TypeError` if the other root is of another class.
        """

    def remove_regular_files_with_suffix(
        self, suffix: str, *, preserve_relative_paths: Iterable[str]
    ) -> tuple[str, ...]:
        """Deletes files by suffix, and proves each directory before and after it is read.

        A directory that is a link is refused, whatever its name, and so is an entry that goes
        missing: `FileNotFoundError`.
        """

    def remove_regular_files_in_prefixes(
        self, prefixes: tuple[str, ...], *, preserve_relative_paths: Iterable[str]
    ) -> tuple[str, ...]:
        """Deletes files beneath directories, with the same proofs."""

    def list_directory_names(self) -> tuple[str, ...]:
        """The names of the directories right beneath the root, without those that are links."""

    def ensure_directory(self, relative_path: str) -> None:
        """Makes missing directories, and proves that the path leads to what was opened.

        Failures of the boundary pass as they are.
        """

    def remove_directory_tree(self, relative_path: str, *, missing_ok: bool) -> bool:
        """Deletes a directory with all that it holds, and proves that each name is gone."""

    def _assert_replaceable_leaf(  # type: ignore[override]
        self, parent_descriptor: int, name: str, *, safe_path: str, allow_replace: bool
    ) -> None:
        """Returns if `name` is absent, or is a regular file and `allow_replace` is true.

        It opens the leaf to look at it. Raises as that of `PinnedRoot` does.
        """

    def _assert_path_matches_regular_file(
        self, relative_path: str, *, label: str, expected_stat: os.stat_result
    ) -> None:
        """Walks afresh and compares stat keys; raises `ValueError` if they differ."""

    def _open_parent(self, relative_path: str, *, label: str, create: bool) -> tuple[int, str]:
        """(handle of the parent directory, which the caller closes; name of the leaf)."""

    def _open_absolute_directory(  # type: ignore[override]
        self, _path: Path, *, create: bool
    ) -> int:
        """A handle of the root's own directory, walked to from its volume; `_path` is not used."""

    def _open_directory_components(  # type: ignore[override]
        self, anchor_handle: int, components: tuple[str, ...], *, label: str
    ) -> int:
        """A handle of the directory beneath the anchor, which stays the caller's."""

    def _require_descriptor(self) -> int:
        """The handle that this root holds and keeps; raises `RuntimeError` if closed."""

    def _assert_parent_path_matches(
        self, relative_path: str, *, expected_parent: int, label: str
    ) -> None:
        """Proves that the path still leads through the directory of the handle `expected_parent`.

        Raises `ValueError` if it does not, or cannot be walked.
        """

    def _assert_directory_path_matches(
        self, relative_path: str, *, expected_directory: int, label: str
    ) -> None:
        """Proves that the path, or the root if it is empty, still is the directory of the handle.

        Raises `ValueError` if it is not, or cannot be opened.
        """

    def _assert_leaf_missing(self, relative_path: str, *, label: str) -> None:
        """Proves that nothing stands at the path, while its parents do; else `ValueError`."""

    def _require_safe_directory(self, handle: int, path: str) -> None:
        """Raises `ValueError` if the handle is of a reparse point or of no directory."""

    def _require_safe_regular(self, handle: int, path: str, label: str) -> None:
        """Raises `ValueError` if the handle is of a reparse point or of a directory."""

def _pinned_root_class(platform_name: str | None = None) -> type[PinnedRoot]:
    """The class for the platform `platform_name`, or for `os.name` if it is None."""

def load_accepted_distribution_set(
    root: str | os.PathLike[str], *, manifest: dict[str, Any] | None = None
) -> LoadedAcceptedDistributionSet:
    """Authenticate manifest, sidecar, and membership streams under one root pin.

    In: the distribution's directory. With `manifest`, "manifest.json" is not read. Members are
    hashed in chunks of 1048576 bytes. The root is pinned, proved and closed within the call.
    Raises what `PinnedRoot` and its reads raise; `ManifestJsonError` for bad manifest bytes;
    `TypeError` if `manifest` is not a dict; `ValueError` if a retired "signals_index.json"
    exists or a member differs from its entry; else as `validate_accepted_distribution_set` does.
    """

# Each of these pins its root or roots, does one operation, proves them, and closes them on every
# exit. A root proof that fails is a `ValueError`: the result is dropped, but what was done to the
# disk stays done. A missing root is a `FileNotFoundError` unless the function makes it.

def read_contained_regular_file(
    root: str | os.PathLike[str], relative_path: str, *, label: str
) -> bytes:
    """All bytes of one regular file beneath `root`.

    Raises as `PinnedRoot` and its `read_regular_file` do.
    """

def read_contained_regular_file_if_present(
    root: str | os.PathLike[str], relative_path: str, *, label: str
) -> bytes | None:
    """All bytes of one regular file beneath `root`, or None if the file or a parent is missing.

    Raises as `PinnedRoot` and its `read_regular_file_if_present` do: a missing root is a
    `FileNotFoundError`.
    """

def stat_contained_regular_file(
    root: str | os.PathLike[str], relative_path: str, *, label: str
) -> os.stat_result:
    """The stat result of one regular file beneath `root`.

    Raises as `PinnedRoot` and its `stat_regular_file` do.
    """

def hash_regular_file_path(
    path: str | os.PathLike[str], *, label: str, chunk_bytes: int = 1048576
) -> str:
    """The SHA-256 of the regular file at the whole path `path`.

    `path` is made absolute without a look at the disk. Holds at most `chunk_bytes` bytes at a time.
    Raises as `PinnedRoot`, for the directory of `path`, and its `hash_regular_file` do. The
    directory is pinned before the name is judged.
    """

def identify_contained_regular_file(
    root: str | os.PathLike[str], relative_path: str, *, label: str, chunk_bytes: int = 1048576
) -> ContainedFileIdentity:
    """Size, SHA-256 and stat key of one regular file beneath `root`.

    Holds at most `chunk_bytes` bytes of it at a time. Raises as `PinnedRoot` and its
    `hash_regular_file` do.
    """

def hash_contained_regular_file(
    root: str | os.PathLike[str], relative_path: str, *, label: str, chunk_bytes: int = 1048576
) -> str:
    """The `sha256` of what `identify_contained_regular_file` gives, which raises what it raises."""

def write_contained_regular_file(
    root: str | os.PathLike[str],
    relative_path: str,
    payload: bytes,
    *,
    allow_replace: bool = True,
) -> str:
    """Publishes `payload` as a whole new file beneath `root`, which is made if it is missing.

    Out: the whole path, joined without a look at links. What is durable and what a failure leaves
    are as for `PinnedRoot.write_atomic`; a root that was made stays.
    Raises as `PinnedRoot` and its `write_atomic` do.
    """

def remove_contained_regular_file(
    root: str | os.PathLike[str], relative_path: str, *, missing_ok: bool = True
) -> bool:
    """Removes one regular file beneath `root`; True if it was there, durable on return.

    With `missing_ok`, False if the file or a parent is missing. A missing root raises
    `FileNotFoundError` all the same. Raises as `PinnedRoot` and its `remove_regular_file` do.
    """

def cleanup_contained_regular_files(
    root: str | os.PathLike[str], *, suffix: str, preserve_relative_paths: Iterable[str]
) -> tuple[str, ...]:
    """Removes every file beneath `root` whose name ends in `suffix`; gives their paths, ascending.

    Raises, and leaves behind, as `PinnedRoot` and its `remove_regular_files_with_suffix` do.
    """

def cleanup_contained_regular_files_in_prefixes(
    root: str | os.PathLike[str],
    *,
    prefixes: tuple[str, ...],
    preserve_relative_paths: Iterable[str],
) -> tuple[str, ...]:
    """Removes every file beneath the directories `prefixes` of `root`; gives the paths, ascending.

    Raises, and leaves behind, as `PinnedRoot` and its `remove_regular_files_in_prefixes` do. The
    root is pinned and proved without prefixes too.
    """

def ensure_contained_directory(root: str | os.PathLike[str], relative_path: str) -> str:
    """Makes each missing directory of the path beneath `root`, and `root` itself.

    Out: the whole path, joined without a look at links. Each new name is durable, and stays after
    a failure. Raises as `PinnedRoot` and its `ensure_directory` do.
    """

def remove_contained_directory_tree(
    root: str | os.PathLike[str], relative_path: str, *, missing_ok: bool = True
) -> bool:
    """Removes a directory beneath `root` with all that it holds; True if it was there.

    Durable on return. With `missing_ok`, False if the directory or a parent is missing. A missing
    root raises `FileNotFoundError` all the same. Raises, and leaves behind, as `PinnedRoot` and
    its `remove_directory_tree` do.
    """

def move_contained_regular_file(
    source_root: str | os.PathLike[str],
    source_relative_path: str,
    destination_root: str | os.PathLike[str],
    destination_relative_path: str,
) -> None:
    """Renames a regular file from one root to another; the destination root is made if missing.

    Durable on return, in both directories. A regular file at the destination is replaced.
    Raises as `PinnedRoot` and its `move_regular_file_to` do, which also tell what a failure leaves:
    roots on different file systems give an `OSError` (`EXDEV`). A root that was made stays.
    """

def copy_contained_regular_file(
    source_root: str | os.PathLike[str],
    source_relative_path: str,
    destination_root: str | os.PathLike[str],
    destination_relative_path: str,
) -> None:
    """Copies a regular file to a new file beneath another root, which is made if it is missing.

    Holds at most 1048576 bytes at a time. Durable on return. A regular file at the destination is
    replaced. That the content is what the source once held is not proved.
    Raises as `open_regular_file_for_read`, `open_regular_file_for_update` and
    `replace_regular_file` of `PinnedRoot` do. A failure before the rename leaves no staged file and
    the destination as it was; a root and directories that were made stay.
    """

def link_or_copy_contained_regular_file(
    source_root: str | os.PathLike[str],
    source_relative_path: str,
    destination_root: str | os.PathLike[str],
    destination_relative_path: str,
) -> Literal["linked", "copied"]:
    """Gives a regular file a second name beneath another root, or copies it if it cannot be linked.

    The destination root is made if it is missing. A link shares the inode: an update in place
    changes both names, `write_atomic` one. The name is durable on return; the data is flushed only
    if it was copied. Raises `FileNotFoundError` for a missing source, `ValueError` for one that is
    not regular; otherwise as `PinnedRoot` and its `replace_regular_file`, or, if no link can be
    made for whatever reason, as `copy_contained_regular_file`. A failure leaves behind what that of
    a copy does.
    """

def read_regular_file_path(path: str | os.PathLike[str], *, label: str) -> bytes:
    """All bytes of the regular file at the whole path `path`.

    `path` is made absolute without a look at the disk. Raises `ValueError` for a name that is no
    relative path, before the directory is pinned; otherwise as `read_contained_regular_file`.
    """

def write_regular_file_path(
    path: str | os.PathLike[str], payload: bytes, *, allow_replace: bool = True
) -> str:
    """Publishes `payload` as a whole new file at the whole path `path`, and makes its directories.

    Out: the path, made absolute without a look at the disk. Raises `ValueError` for a name that is
    no relative path, before the directory is pinned; otherwise raises, and leaves behind, as
    `write_contained_regular_file` does.
    """

# What the manifests on this machine say of themselves; nothing that they list is looked at.

def positive_manifest_int(value: object) -> int | None:
    """`int(value)` if that is above 0, otherwise None.

    None, too, for a bool and for what `int` refuses with `TypeError` or `ValueError`. Lenient in
    form: "3", b" 3 " and 3.9 give 3. An infinite float raises the host's `OverflowError`.
    """

def manifest_metadata_from_path(path: str | os.PathLike[str]) -> dict[str, int]:
    """What the manifest at the whole path `path` says of itself.

    Out: a new dict with `client_manifest_version`, `client_manifest_market_id` and
    `client_manifest_era_number`, in this order, all above 0; or an empty one if the file or a
    directory is missing, or one of the three values is no positive integer.
    Raises as `read_regular_file_path` does but for absence, and as
    `parse_distribution_manifest_bytes` does.
    """

def local_client_manifest_metadata(
    data_dir: str | os.PathLike[str] | None,
    *,
    market_id: object = None,
    era_number: object = None,
) -> dict[str, int]:
    """What the first usable manifest under `data_dir` says of itself, or an empty dict.

    Tries `distribution/market_<market_id>/era_<era_number>/manifest.json` if both are asked for,
    with an era alone the one such path of any market, then `manifest.json`. What
    `positive_manifest_int` makes None of is not asked for; the result is not held against the
    request. None or an empty `data_dir` gives an empty dict.
    Raises as `manifest_metadata_from_path` does, and then tries no further path.
    """
