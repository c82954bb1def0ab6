"""A page in Markdown, taken apart."""

import re

import markdown_it


class MarkdownPage:
    """Lines count from 1.

    fences:   (first line inside, words behind the fence, lines)
    indented: first lines of blocks that are indented instead
    spans:    (line, text) of code inside prose
    targets:  of links and pictures
    anchors:  of headings
    """

    def __init__(self, path):
        self.fences, self.indented, self.spans, self.targets = [], [], [], []
        self.anchors = set()
        parser = markdown_it.MarkdownIt("commonmark").enable("table")
        line, is_heading = 1, False
        for token in parser.parse(path.read_text()):
            line = token.map[0] + 1 if token.map else line
            if token.type == "fence":
                self.fences.append((line + 1, token.info.split(), token.content.splitlines()))
            elif token.type == "code_block":
                self.indented.append(line)
            elif token.type == "inline":
                self._read_inline(token.children, line)
                if is_heading:
                    words = re.sub(r"[^\w\- ]", "", token.content.lower())
                    self.anchors.add(words.replace(" ", "-"))
            is_heading = token.type == "heading_open"

    def _read_inline(self, tokens, line):
        for token in tokens:
            if token.type == "softbreak":
                line += 1
            elif token.type == "code_inline":
                self.spans.append((line, token.content))
            elif token.type == "link_open":
                self.targets.append(token.attrs["href"])
            elif token.type == "image":
                self.targets.append(token.attrs["src"])
