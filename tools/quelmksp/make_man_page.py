#!/usr/bin/env python3
"""Writes quelmksp.1 from the client's own --help texts, so that the man page
and --help never say different things. Usage: make_man_page.py CLIENT OUTPUT"""
import re
import subprocess
import sys


def help_text(client, *words):
    return subprocess.run([client, *words, "--help"], check=True, capture_output=True,
                          text=True).stdout


def roff(text):
    lines = []
    for line in text.rstrip("\n").split("\n"):
        line = line.replace("\\", "\\e").replace("-", "\\-")
        if line.startswith((".", "'")):
            line = "\\&" + line
        lines.append(line)
    return "\n".join(lines)


def main():
    client, output = sys.argv[1], sys.argv[2]
    version = subprocess.run([client, "--version"], check=True, capture_output=True,
                             text=True).stdout.split()[1]
    overview = help_text(client)
    usage, _, rest = overview.partition("\n\n")
    commands = re.findall(r"^  ([a-z]+(?: [a-z]+)?)  ", rest.split("\n\nOptions:")[0], re.M)
    page = [
        '.TH QUELMKSP 1 "" "quelmksp %s" "User Commands"' % version,
        ".SH NAME",
        "quelmksp \\- the command-line client of the Velmora key storage provider",
        ".SH SYNOPSIS",
        ".nf",
        roff("\n".join(line.strip() for line in usage.replace("usage: ", "", 1).split("\n"))),
        ".fi",
        ".SH DESCRIPTION",
        ".nf",
        roff(rest),
        ".fi",
        ".SH COMMANDS",
    ]
    for command in commands:
        page += [".SS %s" % command, ".nf", roff(help_text(client, *command.split())), ".fi"]
    with open(output, "w", encoding="utf-8") as out:
        out.write("\n".join(page) + "\n")


if __name__ == "__main__":
    main()
