"""Where the site shows each file of the project."""

import glob
import os

from github_markdown import headings

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
CHARTS = os.path.join(ROOT, "docs", "performance")


def pages():
    """The project's Markdown that is part of the site."""
    patterns = ("*.md", "docs/*.md", "docs/man/*.md")
    return [name for pattern in patterns for name in glob.glob(os.path.join(ROOT, pattern))]


def label(path):
    """What the page of a Markdown file is called."""
    return os.path.basename(path)[:-len(".md")].lower().replace(".", "-")


def title(path):
    """The anchor of a page's title, which is the page itself on the site."""
    with open(path, encoding="utf-8") as file:
        return next(headings(file.read()), ("", "", "", ""))[3]


def is_page(name):
    return name in {label(path) for path in pages()}


def address(target, document):
    """The link on the site for one that stands in a Markdown file."""
    if "://" in target or target.startswith("mailto:"):
        return target
    name, _, anchor = target.partition("#")
    path = os.path.normpath(os.path.join(os.path.dirname(document), name)) if name else document
    relative = os.path.relpath(path, ROOT)
    if path in pages():
        page = label(path)
        return f"{page}.html#{page}-{anchor}" if anchor and anchor != title(path) else f"{page}.html"
    if os.path.dirname(path) == CHARTS:
        return os.path.basename(path)
    return f"files/{relative}.html"
