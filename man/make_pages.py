#!/usr/bin/env python3
"""Makes the manual pages of qvres from its help, so that the two cannot differ.

Usage: make_pages.py QVRES VERSION CHANGELOG SOURCE_FOLDER OUTPUT_FOLDER. Writes qvres.1.gz and qvres-COMMAND.1.gz for each command. What the
help does not say is in SOURCE_FOLDER/qvres.in and qvres-COMMAND.in: further sections, appended as they are. The pages written by
hand (SOURCE_FOLDER/*.7) are packed beside them. An unexpected form of the help is an error.
"""
import email.utils
import gzip
import pathlib
import re
import subprocess
import sys

TEXT_COLUMN = 30  # where the help's texts begin
SECTIONS = ("Positionals:", "Options:", "Subcommands:")
OPTIONS_OF_QVRES = re.compile(r'(The options .*) are explained by "qvres --help"\.')
EXIT_STATUS = {"0": "The work is done.",
               "1": "It failed, and a line on standard error says why; or the answer is \"no\", where the description says so.",
               "2": "Wrong usage.",
               "130": "Cancelled by Ctrl-C or SIGTERM."}


class Help:
    """What `qvres COMMAND --help` prints, taken apart."""

    def __init__(self, command):
        text = subprocess.run([*command, "--help"], check=True, capture_output=True, text=True).stdout
        head, usage, rest = re.split(r"^Usage: (.*)\n", text, maxsplit=1, flags=re.M)
        self.description = sentence(head)
        self.usage = re.sub(r"\(\d.*?\)", "", usage)
        self.entries = {section: [] for section in SECTIONS}  # section: [(name, text)]
        self.notes = []
        self.examples = []
        place = None
        for line in rest.splitlines():
            if line in SECTIONS or line == "Examples:":
                place = line
            elif line and not line.startswith(" "):
                place = None
                self.notes.append(line)
            elif place == "Examples:" and line:
                self.examples.append(line.strip())
            elif place in SECTIONS and line:
                self.add(place, line)
            elif line:
                raise ValueError(f"{command}: not understood: {line}")
        for name, text in self.entries["Options:"] + self.entries["Subcommands:"]:
            if not text:
                raise ValueError(f"{command}: {name} has no text")

    def add(self, section, line):
        if line[2] != " ":
            # A name that reaches that column has its text on the next line.
            end = TEXT_COLUMN if line[TEXT_COLUMN - 1:TEXT_COLUMN] == " " else len(line)
            self.entries[section].append((plain(line[:end].strip()), line[end:]))
        else:
            name, text = self.entries[section].pop()
            self.entries[section].append((name, f"{text} {line.strip()}".strip()))

    def options(self):
        return [entry for entry in self.entries["Options:"] if entry[1] != "Print this help message and exit"]


def plain(name):
    """An option or argument without the marks of the command-line parser."""
    name = re.sub(r" REQUIRED\b| TEXT\b(?!:)|(?<= )TEXT:|:[A-Z]+ in \[.*?\]", "", name)
    return re.sub(r"\s*(Excludes|Needs): .*", "", name).replace(",-", ", -")


def sentence(text):
    text = " ".join(text.split())
    return text if text.endswith(".") else text + "."


def summary(text):
    """What the line of a manual page's name says: the first clause."""
    text = re.split(r"(?<= \w{4})[;:]\s|(?<=\w)[;.]\s|\s\(|\.$", text.removeprefix("qvres "), maxsplit=1)[0].rstrip(",. ")
    if len(text) > 80:
        text = re.split(r"[,:] ", text, maxsplit=1)[0]
    return text[0].lower() + text[1:]


def roff(text):
    for character, escape in (("\\", "\\e"), ("'", "\\(aq"), ("`", "\\(ga"), ("~", "\\(ti"), ("^", "\\(ha")):
        text = text.replace(character, escape)
    text = re.sub(r"(?<![\w\\])-+(?=\w)", lambda match: match.group().replace("-", "\\-"), text)
    return "\\&" + text if text.startswith(".") else text


def bold(text):
    """Words of an option or synopsis: literal ones bold, the caller's italic."""
    words = []
    for word in text.split(" "):
        style = "I" if re.search(r"[A-Z]{2}", word) else "B" if re.match(r"[\w-]", word) else "R"
        words.append(f"\\f{style}{roff(word)}\\fR")
    return " ".join(words)


def entries(rows):
    return [line for name, text in rows if text for line in (".TP", bold(name), roff(sentence(text)))]


def section(title, lines):
    return [f".SH {title}", *lines] if lines else []


def example_lines(examples):
    return [".nf", *(roff(line).replace(" -", " \\-") for line in examples), ".fi"] if examples else []


def nested(qvres, command, rows):
    lines = []
    for name, _ in rows:
        help_ = Help([qvres, command, name])
        lines += [".SS " + roff(help_.usage if help_.options() else help_.usage.replace(" [OPTIONS]", "")), roff(help_.description)]
        lines += entries(help_.entries["Positionals:"] + help_.options())
        if help_.examples:
            lines += [".PP", *example_lines(help_.examples)]
    return lines


def page(name, version, date, help_, subcommands, extra, related):
    notes = [line for line in help_.notes if not OPTIONS_OF_QVRES.fullmatch(line) and not line.startswith('"')]
    lines = [f'.TH {name.upper()} 1 "{date}" "QvServices {version}" "The resource tree"',
             ".SH NAME", f"{name} \\- {roff(summary(help_.description))}",
             ".SH SYNOPSIS", bold(help_.usage),
             ".SH DESCRIPTION", roff(help_.description)]
    if notes:
        lines += [".PP", roff(sentence(" ".join(notes)))]
    for options in filter(None, map(OPTIONS_OF_QVRES.fullmatch, help_.notes)):
        lines += [".PP", roff(options[1]) + " are described in", ".BR qvres (1)."]
    lines += section("ARGUMENTS", entries(help_.entries["Positionals:"]))
    lines += section("OPTIONS", entries(help_.options()))
    lines += section("COMMANDS", subcommands)
    lines += section("EXAMPLES", example_lines(help_.examples))
    lines += section("EXIT STATUS", entries(EXIT_STATUS.items()))
    lines += extra
    references = [f".BR {other} ({number})".replace("-", "\\-") for other, number in related]
    lines += section("SEE ALSO", [",\n".join(references)])
    return "\n".join(lines) + "\n"


def main(qvres, version, changelog, source, output):
    date = email.utils.parsedate_to_datetime(re.search(r"^ -- .*>  (.*)", changelog.read_text(), re.M)[1]).date()

    def pack(name, text):
        # Neither a time nor a name in the archive: two builds give the same bytes.
        with (output / f"{name}.gz").open("wb") as file, gzip.GzipFile("", "wb", 9, file, mtime=0) as packed:
            packed.write(text.encode())

    def write(name, help_, subcommands, related):
        fragment = source / f"{name}.in"
        extra = fragment.read_text().splitlines() if fragment.exists() else []
        pack(f"{name}.1", page(name, version, date, help_, subcommands, extra, related))

    output.mkdir(parents=True, exist_ok=True)
    for by_hand in source.glob("*.7"):
        pack(by_hand.name, by_hand.read_text())
    top = Help([qvres])
    commands = top.entries["Subcommands:"]
    if not commands:
        raise ValueError("the help of qvres lists no commands")
    for name, _ in commands:
        help_ = Help([qvres, name])
        write(f"qvres-{name}", help_, nested(qvres, name, help_.entries["Subcommands:"]), [("qvres", 1), ("qvservices", 7)])
    write("qvres", top, entries((f"{name}", text) for name, text in commands),
          [(f"qvres-{name}", 1) for name, _ in commands] + [("qvservices", 7)])


if __name__ == "__main__":
    main(*sys.argv[1:3], *map(pathlib.Path, sys.argv[3:]))
