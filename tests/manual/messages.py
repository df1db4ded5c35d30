"""The texts in C++ sources: each literal, with gaps for parts that are inserted at run time."""

import re

TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/'                                     # comments
    r'|R"(?P<delimiter>[^(\s]*)\((?P<raw>.*?)\)(?P=delimiter)"'
    r'|"(?P<text>(?:[^"\\\n]|\\.)*)"'
    r"|'(?P<character>(?:[^'\\\n]|\\.)+)'"
    r"|(?<=[0-9])'(?=[0-9])"                                  # digit separator
    r'|\#[^\n]*'                                              # directives: their literals are file names
    r'|::|<<|[;{},?:]'
    r'|[A-Za-z_]\w*|\d[\w\']*|\s+|.',
    re.DOTALL)

GAP = "\0"
ENDS = {";", "{", "}", ",", "?", ":", "<<"}  # literals after these belong to another text
JOINING = {"systemError", "reportSystemError"}  # join their arguments to one text
ESCAPES = {"n": "\n", "t": "\t", "f": "\f", "r": "\r", "v": "\v", "0": GAP, "e": "\x1b"}


def unescaped(text):
    return re.sub(r"\\(.)", lambda found: ESCAPES.get(found[1], found[1]), text)


def texts(source):
    """Every text of the source, in order. Neighbours in one expression form one text with a gap between;
    literals that the C++ compiler joins are joined. "%s" is a gap as well."""
    result = []
    parts = []
    joined = False  # nothing but white space since the last literal
    call = None  # how deep in the parentheses of a joining call

    def end():
        if parts:
            result.append(re.sub(f"{GAP}+", GAP, GAP.join(parts).replace("%s", GAP)))
            parts.clear()

    for found in TOKEN.finditer(source):
        token = found[0]
        if token.isspace() or token.startswith(("//", "/*", "#")):
            continue
        literal = found["text"] if found["text"] is not None else found["raw"]
        if literal is not None:
            literal = unescaped(literal) if found["raw"] is None else literal
            if joined:
                parts[-1] += literal
            else:
                parts.append(literal)
            joined = True
            continue
        joined = False
        if call is None and token in JOINING:
            call = 0
        elif call is not None and token in ("(", ")"):
            call += 1 if token == "(" else -1
            if call == 0:
                call = None
        if token in ENDS and not (call and token == ","):
            end()
    end()
    return result
