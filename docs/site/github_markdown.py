"""What GitHub makes of Markdown: the anchors of headings, and where the links are."""

import re

FENCE = re.compile(r"^ {0,3}(?:[-*\d.]+ +)?(```+|~~~+)")
LINK = re.compile(r"(!?)\[([^\[\]]*)\]\(([^()\s]+)\)")
DEFINITION = re.compile(r"^\[([^\[\]]+)\]: +(\S+)", re.M)
CODE_SPAN = re.compile(r"(?<!`)(`+)(?!`)((?:[^`]|(?!\1(?!`))`+)*?)(?<!`)\1(?!`)")


def fenced(lines):
    """For each line whether it belongs to a fenced block, the fences included."""
    fence = None
    for line in lines:
        match = FENCE.match(line)
        if fence is None and match:
            fence = match.group(1)
            yield True
        elif fence is not None:
            yield True
            if line.strip() == fence:
                fence = None
        else:
            yield False


def without_blocks(text):
    """The text with its fenced blocks made unreadable, each character in its place."""
    lines = text.split("\n")
    return "\n".join("\0" * len(line) if code else line for line, code in zip(lines, fenced(lines)))


def code_spans(text):
    """Each piece of code within a paragraph as its place in the text."""
    begin = 0
    for paragraph in without_blocks(text).split("\n\n"):
        for match in CODE_SPAN.finditer(paragraph):
            yield begin + match.start(), begin + match.end()
        begin += len(paragraph) + 2


def masked(text):
    """The text with all of its code made unreadable, each character in its place."""
    readable = list(without_blocks(text))
    for begin, end in code_spans(text):
        readable[begin:end] = "\0" * (end - begin)
    return "".join(readable)


def slug(heading):
    """The anchor of a heading that is the first with its text."""
    text = re.sub(r"!?\[([^\[\]]*)\]\([^()]*\)", r"\1", heading).replace("`", "").strip().lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def headings(text):
    """Each heading as the number of its line, its level, its text and its anchor."""
    lines = text.split("\n")
    seen = {}
    for number, (line, code) in enumerate(zip(lines, fenced(lines))):
        match = None if code else re.match(r"^(#{1,6}) +(.*?)(?: +#+)? *$", line)
        if match:
            anchor = slug(match.group(2))
            count = seen.get(anchor, 0)
            seen[anchor] = count + 1
            yield number, len(match.group(1)), match.group(2), anchor if count == 0 else f"{anchor}-{count}"


def links(text):
    """Each link and image as the place of its target in the text, the first character and the one behind the last."""
    readable = masked(text)
    for pattern, group in ((LINK, 3), (DEFINITION, 2)):
        for match in pattern.finditer(readable):
            if "\n\n" not in match.group(0):
                yield match.span(group)
