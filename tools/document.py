"""Writes what a program's --help says in other forms: completions for bash, zsh and fish, and the
COMMANDS of its manual page, appended to an include file of help2man.

Usage: document.py PROGRAM INCLUDE DIRECTORY
"""

import re
import subprocess
import sys
from pathlib import Path


class Entry:
    """An argument, an option or a command: a line of the help."""

    def __init__(self, head, text):
        names, *value = head.split()
        self.name = names.split(",")[-1]  # of -h,--help the second
        self.value = value[0] if value else ""
        self.text = re.sub(r":? *{.*}", "", text)
        choices = re.search(r"{(.*?)}", f"{head} {text}")
        self.choices = re.split(r",\s*", choices[1]) if choices else []


class Command:
    def __init__(self, program, words):
        self.path = " ".join([program.name, *words])
        self.sections = {"Arguments": [], "Options": [], "Commands": []}
        output = subprocess.run(
            [program, *words, "--help"], check=True, stdout=subprocess.PIPE, text=True
        ).stdout
        self.text = output[: output.index("Usage:")].strip()
        self.usage = re.search(r"^Usage: (.*)", output, re.M)[1]
        for title, body in re.findall(r"^(\w+):\n((?:  .*\n)+)", output, re.M):
            body = re.sub(r"\n {3,}", "  ", body)  # one line an entry
            self.sections[title] = [
                Entry(head, re.sub(" +", " ", text))
                for head, text in re.findall(r"^  (\S+(?: \S+)*) *(.*)", body, re.M)
            ]

    def options(self):
        return self.sections["Options"]

    def zones(self):
        """Tells whether an argument is a time zone, for which there are too many words."""
        return any(argument.name == "ZONE" for argument in self.sections["Arguments"])

    def words(self):
        """What may follow besides options, each with its description."""
        choices = [(choice, "") for a in self.sections["Arguments"] for choice in a.choices]
        return [(c.name, c.text) for c in self.sections["Commands"]] + choices


def commands_of(program, words=()):
    """The program itself, and all commands below it."""
    command = Command(program, words)
    yield command
    for entry in command.sections["Commands"]:
        yield from commands_of(program, (*words, entry.name))


# Prints the zones; bash asks only for those that begin like the current word, in either case.
ZONES = "chronalctl timezone list 2>/dev/null"
BASH_ZONES = f'mapfile -t COMPREPLY < <({ZONES} -- "$current*"); '
ZSH_ZONES = '${(f)"$(' + ZONES + ')"}'


def quoted(text):
    return "'" + text.replace("'", r"'\''") + "'"


# In each of the following scripts, @PATH@ matches the words of any command.

BASH = r"""# bash completion of @NAME@

@FUNCTION@()
{
    local word words path=@NAME@ current=${COMP_WORDS[COMP_CWORD]}
    local previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    # For bash, the "=" of --option=VALUE is a word.
    [[ $previous != = ]] || previous=${COMP_WORDS[COMP_CWORD - 2]}
    [[ $current != = ]] || current=
    case $previous in
@VALUES@
    esac
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case "$path $word" in
            @PATH@) path+=" $word" ;;
        esac
    done
    case $path in
@WORDS@
    esac
    words+=' @OPTIONS@'
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current" ||
        compgen -W "$words" -- "${current^^}")
}
complete -F @FUNCTION@ @NAME@
"""

ZSH = r"""#compdef @NAME@

local word at=@NAME@ previous=${words[CURRENT - 1]}
local -a candidates options=(@OPTIONS@)
if compset -P '--*='; then
    previous=${words[CURRENT]%%=*}
fi
case $previous in
@VALUES@
esac
for word in "${(@)words[2, CURRENT - 1]}"; do
    case "$at $word" in
        @PATH@) at+=" $word" ;;
    esac
done
case $at in
@WORDS@
esac
_describe -t commands word candidates -M 'm:{a-z}={A-Z}'
_describe -t options option options
"""

FISH = r"""# fish completion of @NAME@

function @FUNCTION@_path
    set -l path @NAME@
    for word in (commandline -opc)[2..]
        switch "$path $word"
            case @PATH@
                set path "$path $word"
        end
    end
    test "$path" = "$argv"
end
complete -c @NAME@ -f
@WORDS@
"""


def bash_value(option):
    if option.value == "PATH":
        # The option makes bash go on in a directory.
        return 'compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$current"); '
    if option.value == "ZONE":
        return BASH_ZONES
    words = " ".join(option.choices)
    return f"mapfile -t COMPREPLY < <(compgen -W '{words}' -- \"$current\"); " if words else ""


def zsh_value(option):
    if option.value == "PATH":
        return "_files; "
    if option.value == "ZONE":
        return f"compadd -M 'm:{{a-z}}={{A-Z}}' -- {ZSH_ZONES}; "
    if option.choices:
        return f"compadd -- {' '.join(option.choices)}; "
    return f"_message {option.value}; "


def zsh_items(items):
    return " ".join(quoted(f"{name}:{text}" if text else name) for name, text in items)


def fish_option(option):
    if option.value == "PATH":
        value = " -r -F"
    elif option.value == "ZONE":
        value = f" -x -a {quoted(f'({ZONES})')}"
    else:
        value = f" -x -a {quoted(' '.join(option.choices))}" if option.value else ""
    return f"-l {option.name[2:]}{value} -d {quoted(option.text)}"


def function_of(name):
    return "_" + name.replace("-", "_")


def fill(template, commands, separator, **parts):
    name = commands[0].path
    paths = separator.join(quoted(command.path) for command in commands[1:])
    parts.update(NAME=name, FUNCTION=function_of(name), PATH=paths or "''")
    return re.sub("@([A-Z]+)@", lambda match: parts[match[1]], template)


def cases(entries, indent):
    return "\n".join(f"{indent}{quoted(pattern)}) {action};;" for pattern, action in entries)


def completions(commands):
    """The three scripts, by their file names."""
    root, *others = commands
    name = root.path
    # Commands may have options of the same name.
    valued = {o.name: o for command in commands for o in command.options() if o.value}.values()
    own = {c: [o for o in c.options() if o.name != "--help"] for c in others}

    def followers(command):
        return command.words() + [(o.name, o.text) for o in own.get(command, [])]

    def bash_words(command):
        words = f"words={quoted(' '.join(word for word, _ in followers(command)))} "
        zones = f"[[ $current == -* ]] || {{ {BASH_ZONES}return; }}; " if command.zones() else ""
        return zones + words

    def zsh_words(command):
        zones = f" {ZSH_ZONES}" if command.zones() else ""
        return f"candidates=({zsh_items(followers(command))}{zones}) "

    bash = fill(
        BASH, commands, " | ",
        OPTIONS=" ".join(option.name for option in root.options()),
        VALUES=cases([(o.name, bash_value(o) + "return ") for o in valued], " " * 8),
        WORDS=cases([(c.path, bash_words(c)) for c in commands], " " * 8),
    )
    zsh = fill(
        ZSH, commands, " | ",
        OPTIONS=zsh_items([(option.name, option.text) for option in root.options()]),
        VALUES=cases([(o.name, zsh_value(o) + "return ") for o in valued], " " * 4),
        WORDS=cases([(c.path, zsh_words(c)) for c in commands], " " * 4),
    )
    lines = [f"complete -c {name} {fish_option(option)}" for option in root.options()]
    for command in commands:
        after = f"complete -c {name} -n '{function_of(name)}_path {command.path}'"
        lines += [f"{after} -a {word} -d {quoted(text)}" for word, text in command.words()]
        lines += [f"{after} {fish_option(option)}" for option in own.get(command, [])]
        lines += [f"{after} -a {quoted(f'({ZONES})')}"] * command.zones()
    fish = fill(FISH, commands, " ", WORDS="\n".join(lines))
    return {f"{name}.bash": bash, f"_{name}": zsh, f"{name}.fish": fish}


def roff(text):
    return re.sub(r"^([.'])", r"\\&\1", text.replace("\\", r"\e").replace("-", r"\-"), flags=re.M)


def manual_section(commands):
    """Each command with its arguments, and the options that it alone has."""
    lines = ["[commands]"]
    for command in commands:
        if command.sections["Commands"]:
            continue
        words = command.path.partition(" ")[2]
        arguments = command.usage.partition("[OPTIONS]")[2].strip()
        lines += [".TP", rf"\fB{roff(words)}\fR \fI{roff(arguments)}\fR", roff(command.text), ".RS"]
        for entry in command.sections["Arguments"] + command.options():
            if entry.name != "--help":
                value = entry.value if entry in command.options() else ""
                lines += [".TP", rf"\fB{roff(entry.name)}\fR \fI{value}\fR", roff(entry.text)]
        lines += [".RE"]
    return "\n".join(lines) + "\n\n"


def main(program, include, directory):
    commands = list(commands_of(Path(program)))
    directory = Path(directory)
    for name, script in completions(commands).items():
        (directory / name).write_text(script)
    section = "[<description]\n.nh\n\n"  # a hyphen would be copied along with a name
    if len(commands) > 1:
        section += manual_section(commands)
    (directory / f"{commands[0].path}.h2m").write_text(section + Path(include).read_text())


main(*sys.argv[1:])
