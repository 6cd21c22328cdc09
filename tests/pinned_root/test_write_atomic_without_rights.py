"""A writer that is not the superuser needs rights on the directory, and none on the old leaf."""

from __future__ import annotations

import errno
from pathlib import Path

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.staging import EXISTS, TEMPORARY, names_in, strays_closed, umask
from support.descriptors import descriptors_kept
from support.failures import fails_with


def test_a_directory_without_the_right_to_write_takes_no_leaf(root: PinnedRoot, tree: Path) -> None:
    (tree / "sub" / "inner.bin").chmod(0o666)
    tree.chmod(0o755)
    (tree / "sub").chmod(0o555)

    def refused() -> None:
        drop_rights()
        with descriptors_kept(), fails_with(PermissionError, None) as caught:
            root.write_atomic("sub/inner.bin", b"payload", allow_replace=True)
        assert isinstance(caught.error, OSError)
        assert TEMPORARY.fullmatch(str(caught.error.filename))
        assert (caught.error.errno, caught.error.__context__) == (errno.EACCES, None)
        with descriptors_kept(), fails_with(PermissionError, None) as caught:
            root.write_atomic("sub/new/leaf", b"payload", allow_replace=True)
        assert isinstance(caught.error, OSError) and caught.error.filename == "new"
        text = EXISTS.format("sub/inner.bin")
        with descriptors_kept(), fails_with(FileExistsError, text):
            root.write_atomic("sub/inner.bin", b"payload", allow_replace=False)

    try:
        run_in_child(refused)
    finally:
        (tree / "sub").chmod(0o755)
    assert (tree / "sub" / "inner.bin").read_bytes() == b"inner bytes"


def test_a_leaf_without_rights_is_replaced_where_the_directory_allows_it(
    root: PinnedRoot, tree: Path
) -> None:
    (tree / "file.bin").chmod(0)
    tree.chmod(0o777)

    def replaced() -> None:
        drop_rights()
        with descriptors_kept():
            root.write_atomic("file.bin", b"payload", allow_replace=True)

    run_in_child(replaced)
    assert (tree / "file.bin").read_bytes() == b"payload"


def test_a_staged_file_that_its_owner_cannot_reopen_is_removed(
    root: PinnedRoot, tree: Path
) -> None:
    """The mask takes all rights from the staged file; the superuser alone would not mind."""
    tree.chmod(0o777)

    def refused() -> None:
        drop_rights()
        with umask(0o777), descriptors_kept():
            with fails_with(PermissionError, None) as caught:
                root.write_atomic("file.bin", b"payload", allow_replace=True)
        assert isinstance(caught.error, OSError)
        assert TEMPORARY.fullmatch(str(caught.error.filename))
        assert caught.error.__context__ is None

    run_in_child(refused)
    assert names_in(tree) == ["file.bin", "sub"]
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


def test_a_directory_without_the_right_to_search_stops_the_clean_up_too(
    root: PinnedRoot, tree: Path
) -> None:
    """It can be opened, but nothing in it can be looked at or removed."""
    tree.chmod(0o755)
    (tree / "sub").chmod(0o444)

    def refused() -> None:
        drop_rights()
        with strays_closed() as strays, fails_with(PermissionError, None) as caught:
            root.write_atomic("sub/inner.bin", b"payload", allow_replace=True)
        looked = caught.error.__context__
        assert isinstance(caught.error, OSError) and isinstance(looked, PermissionError)
        assert TEMPORARY.fullmatch(str(caught.error.filename))
        assert looked.filename == "inner.bin"
        assert len(strays) == 1

    try:
        run_in_child(refused)
    finally:
        (tree / "sub").chmod(0o755)
    assert (tree / "sub" / "inner.bin").read_bytes() == b"inner bytes"
