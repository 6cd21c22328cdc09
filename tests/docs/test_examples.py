"""Every Python example in the documentation runs, and gives the results that it shows.

The blocks of one file run in their order, as one program, with `root` set to the directory of a
valid distribution. A comment `# -> ` behind an expression, or alone on the line below it, shows
what the expression gives: the value's repr, or class and text of the exception that it raises.
Three dots in it stand for text that is left out.
"""

from __future__ import annotations

import ast
import io
import re
import tokenize
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

import pytest

from support.distribution import valid_distribution

REPOSITORY = Path(__file__).resolve().parents[2]
FENCE = re.compile(r"^```python\n(.*?)^```$", re.MULTILINE | re.DOTALL)
ARROW = "# -> "
OPENING = "```python"
DOCUMENTS = [
    document
    for document in (REPOSITORY / "README.md", *sorted(REPOSITORY.glob("docs/**/*.md")))
    if OPENING in document.read_text("utf-8")
]
WITH_RESULTS = [
    REPOSITORY / "README.md",
    REPOSITORY / "docs/formats.md",
    *sorted(REPOSITORY.glob("docs/reference/*.md")),
]


@dataclass(frozen=True)
class Block:
    """One fenced example, and the line of its document above its first one."""

    code: str
    line: int


def blocks_of(text: str) -> list[Block]:
    """The examples of one document, in their order."""
    return [Block(found[1], text.count("\n", 0, found.start(1))) for found in FENCE.finditer(text)]


def shown_results(code: str) -> dict[int, str]:
    """What the comments show, by the line on which the expression ends."""
    shown = {}
    for token in tokenize.generate_tokens(io.StringIO(code).readline):
        if token.type == tokenize.COMMENT and token.string.startswith(ARROW):
            alone = not token.line[: token.start[1]].strip()
            line = token.start[0] - 1 if alone else token.start[0]
            shown[line] = token.string.removeprefix(ARROW)
    return shown


def assert_gives(work: Callable[[], object], shown: str) -> None:
    """Requires the value or the failure of `work` to read as shown."""
    cause = None
    try:
        told = repr(work())
    except Exception as error:
        told = f"{type(error).__name__}: {error}"
        cause = error
    pattern = ".*".join(map(re.escape, shown.split("...")))
    if not re.fullmatch(pattern, told, re.DOTALL):
        raise AssertionError(f"shown: {shown}\n given: {told}") from cause


class _HoldsResults(ast.NodeTransformer):
    """Turns each expression with a shown result into a call that holds it against the result."""

    def __init__(self, shown: dict[int, str]) -> None:
        self.left = dict(shown)

    def visit_Expr(self, node: ast.Expr) -> ast.AST:
        shown = self.left.pop(node.end_lineno or 0, None)
        if shown is None:
            return node
        call = ast.parse(f"assert_gives(lambda: None, {shown!r})").body[0]
        assert isinstance(call, ast.Expr) and isinstance(call.value, ast.Call)
        work = call.value.args[0]
        assert isinstance(work, ast.Lambda)
        work.body = node.value
        return ast.fix_missing_locations(ast.copy_location(call, node))


def run(text: str, name: str, root: Path) -> None:
    """Runs the examples of one document as one program."""
    names: dict[str, object] = {"__name__": name, "root": root, "assert_gives": assert_gives}
    for block in blocks_of(text):
        transformer = _HoldsResults(shown_results(block.code))
        tree = transformer.visit(ast.parse(block.code))
        assert not transformer.left, f"{name}: no expression gives {transformer.left}"
        ast.increment_lineno(tree, block.line)
        exec(compile(tree, name, "exec"), names)


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return valid_distribution().write(tmp_path / "distribution")


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_the_examples_of_a_document_run(document: Path, root: Path) -> None:
    run(document.read_text("utf-8"), document.name, root)


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_no_example_is_passed_over(document: Path) -> None:
    text = document.read_text("utf-8")
    assert len(blocks_of(text)) == text.count(OPENING)


@pytest.mark.parametrize("document", WITH_RESULTS, ids=lambda path: path.name)
def test_a_document_has_examples_with_results(document: Path) -> None:
    found = blocks_of(document.read_text("utf-8"))
    assert any(shown_results(block.code) for block in found)


def _document(code: str) -> str:
    return f"# Title\n\n```python\n{code}\n```\n"


@pytest.mark.parametrize(
    "code",
    [
        "1 + 1  # -> 3",
        "1 + 1  # -> ValueError: no",
        "int('x')  # -> 1",
        "int('x')  # -> ValueError: another text",
        "if True:\n    1 + 1\n    # -> 3",
        "'abc'  # -> 'b...'",
        "value = 1  # -> 1",
        "# -> 1",
        "1 / 0",
    ],
)
def test_an_example_that_is_wrong_fails(code: str, root: Path) -> None:
    with pytest.raises((AssertionError, ZeroDivisionError)):
        run(_document(code), "wrong.md", root)


def test_an_example_that_is_right_passes(root: Path) -> None:
    code = "len(\n    'abc'\n)\n# -> 3\n'abc'  # -> 'a...'\nint('x')  # -> ValueError: invalid..."
    run(_document(code), "right.md", root)
