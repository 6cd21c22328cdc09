"""Every link between the documents leads to a file that is there, and to a heading in it."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
DOCUMENTS = [
    *sorted(REPOSITORY.glob("*.md")),
    *sorted(REPOSITORY.glob("docs/**/*.md")),
    REPOSITORY / "bench/README.md",
]
LINK = re.compile(r"\]\(([^)\s]+)\)")
FENCED = re.compile(r"^```.*?^```$", re.MULTILINE | re.DOTALL)
HEADING = re.compile(r"^#+ (.*)$", re.MULTILINE)


def prose_of(document: Path) -> str:
    """The document without its fenced examples."""
    return FENCED.sub("", document.read_text("utf-8"))


def anchor_of(heading: str) -> str:
    """The anchor that a heading is given: lower case, no punctuation, hyphens for spaces."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def anchors_of(document: Path) -> set[str]:
    return {anchor_of(found[1]) for found in HEADING.finditer(prose_of(document))}


def broken_links(document: Path) -> list[str]:
    """The links to places in the repository that lead nowhere."""
    broken = []
    for found in LINK.finditer(prose_of(document)):
        place, _, anchor = found[1].partition("#")
        if "://" in place:
            continue
        target = document.parent / place if place else document
        if not target.exists() or (anchor and anchor not in anchors_of(target)):
            broken.append(found[1])
    return broken


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_the_links_of_a_document_lead_somewhere(document: Path) -> None:
    assert broken_links(document) == []


@pytest.mark.parametrize("link", ["none.md", "#none", "other.md#none", "other.md#a-heading-2"])
def test_a_link_that_leads_nowhere_is_found(tmp_path: Path, link: str) -> None:
    (tmp_path / "other.md").write_text("# A heading\n", "utf-8")
    document = tmp_path / "document.md"
    document.write_text(f"# `read(file, *)`\n\n[there]({link})\n", "utf-8")
    assert broken_links(document) == [link]


def test_a_link_that_leads_somewhere_is_not_found(tmp_path: Path) -> None:
    document = tmp_path / "document.md"
    links = "[a](#readfile-) [b](document.md) [c](document.md#readfile-) [d](https://example.org/x)"
    document.write_text(f"# `read(file, *)`\n\n{links}\n", "utf-8")
    assert broken_links(document) == []


def test_the_reference_names_all_of_its_pages() -> None:
    index = (REPOSITORY / "docs/reference.md").read_text("utf-8")
    pages = sorted(path.name for path in REPOSITORY.glob("docs/reference/*.md"))
    assert [name for name in pages if f"](reference/{name})" not in index] == []
