"""The workloads: what is laid out for them, our kit, and the peers that do the same work."""

import grp
import os
import pwd
import shlex
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

from measure import Program

EXCLUDED = ["*.bak", "*.tmp", "*.orig", "*.old", "*~"]
EXTENSIONS = ["html", "css", "js", "cgi", "png", "txt", "conf", "html~", "bak", "old"]


# What is laid out: the same bytes on every machine and in every run.


def make_tree(top, files):
    """`files` files of 1 to 16 KiB, fifty a directory, the directories on two levels."""
    size = 1024
    for number in range(files):
        part = number // 50
        directory = top / f"part-{part % 10}" / f"chapter-{part:03d}" if part >= 10 else top / f"part-{part}"
        directory.mkdir(parents=True, exist_ok=True)
        name = f"page-{number:05d}.{EXTENSIONS[number % len(EXTENSIONS)]}"
        size = 1024 + (size * 5 + 4567) % 15361
        (directory / name).write_bytes((f"{name} " * (size // len(name))).encode()[:size])


def make_big_file(path, size):
    block = bytes((i * i * 7 + i) % 251 for i in range(1 << 20))
    with open(path, "wb") as file:
        for _ in range(size >> 20):
            file.write(block)


def make_settings(count):
    """Names and values, the product's name first."""
    return [("product", "Bench")] + [
        (f"{word}_{i:02d}", f"/srv/www/{word}/{i * 37 % 100}")
        for i in range(1, count)
        for word in [("docroot", "owner", "scripts_dir", "title", "mail")[i % 5]]
    ]


def make_template(path, settings, references, opening, closing):
    """A line in two refers to a setting."""
    with open(path, "w", encoding="ascii") as file:
        for i in range(references):
            name = settings[i * 7 % len(settings)][0]
            file.write(f"option.{i:05d} = prefix/{opening}{name}{closing}/suffix and so on\n")
            file.write(f"# line {i:05d} only says what the option above is for, as a settings file does\n")


# Kits


def make_kit(directory, installer, settings=(), init=(), copy_lines=()):
    """A kit whose install section asks nothing and runs `copy_lines`."""
    directory.mkdir(parents=True)
    shutil.copy(installer, directory / "setup")
    files = {
        "setup.dat": [f"{name} {value}" for name, value in settings or [("product", "Bench")]],
        "setup.int": init,
        "setup.q": ["[install]"],
        "setup.cpy": ["[install]", *copy_lines],
    }
    for name, lines in files.items():
        (directory / name).write_text("".join(f"{line}\n" for line in lines), encoding="ascii")


def automated(kit, name="installer"):
    return Program(name, ["./setup", "-automate"], str(kit), stdout=str(kit / "output"))


# Workloads


@dataclass
class Workload:
    name: str
    ours: Program
    peers: list
    wanted: float = 0.0  # our time by the best peer's
    bare: Program = None  # the bare system calls for the same work, the physical limit
    within: float = 0.0  # how many milliseconds more than those are allowed, 0: any
    prepare: Callable = lambda program: None
    check: Callable = lambda: None  # ends the benchmark when the last run did not do the work
    pairs: int = 15
    at_once: int = 1
    files: int = 0  # 0: nothing to count by


def system(*command):
    subprocess.run([str(word) for word in command], check=True)


def emptied(directory):
    system("rm", "-rf", directory)
    os.mkdir(directory)


def shell(name, text, **streams):
    return Program(name, ["dash", "-c", text], **streams)


@dataclass
class Sizes:
    files: int  # of the tree
    big: int  # bytes of the one file
    references: int
    lines: int  # of the largest copy script
    pairs: int


class Setting:
    """Where everything is: a folder with the tree, and the programs that were built."""

    def __init__(self, place, build, sizes):
        place.mkdir()
        self.place, self.build, self.sizes = place, build, sizes
        self.tree, self.target = place / "tree", place / "target"
        make_tree(self.tree, sizes.files)
        self.target.mkdir()

    def kit(self, name, **parts):
        directory = self.place / f"kit-{name}"
        make_kit(directory, self.build / "installer", **parts)
        return directory

    def bare_run(self, *words, stdin=os.devnull):
        words = [str(self.build / "bench/bare"), *map(str, words)]
        return Program("bare calls", words, stdin=stdin, stdout=str(self.place / "dots"))


def same_trees(tree, copied, leave_out=()):
    system("diff", "-r", *[f"--exclude={wild}" for wild in leave_out], tree, copied)
    for wild in leave_out:
        if next(Path(copied).rglob(wild), None):
            raise SystemExit(f"'{wild}' was copied")


def copy_tree(s):
    tree, target = shlex.quote(str(s.tree)), shlex.quote(str(s.target))
    return Workload(
        f"{s.sizes.files:,} files of 1-16 KiB, CopyDir",
        automated(s.kit("copy", copy_lines=[f"CopyDir {s.tree} - {s.target}"])),
        [
            Program("cp -r", ["cp", "-r", str(s.tree), str(s.target)]),
            shell("tar, tar", f"tar -C {tree}/.. -cf - tree | tar -C {target} -xf -"),
            Program("rsync -a", ["rsync", "-a", str(s.tree), str(s.target)]),
        ],
        wanted=0.85,
        bare=s.bare_run("copy", s.tree, s.target),
        prepare=lambda program: emptied(s.target),
        check=lambda: same_trees(s.tree, s.target / "tree"),
        pairs=s.sizes.pairs,
        files=s.sizes.files,
    )


def copy_tree_excluding(s):
    tree, target = shlex.quote(str(s.tree)), shlex.quote(str(s.target))
    excludes = " ".join(shlex.quote(f"--exclude={wild}") for wild in EXCLUDED)
    return Workload(
        "the same, 5 wildcards excluded",
        automated(s.kit("exclude", copy_lines=[f"CopyDir {s.tree} {','.join(EXCLUDED)} {s.target}"])),
        [
            shell("rsync --exclude", f"exec rsync -a {excludes} {tree} {target}"),
            shell("tar --exclude", f"tar -C {tree}/.. {excludes} -cf - tree | tar -C {target} -xf -"),
        ],
        wanted=0.80,
        bare=s.bare_run("copy", s.tree, s.target, *[wild[1:] for wild in EXCLUDED]),
        prepare=lambda program: emptied(s.target),
        check=lambda: same_trees(s.tree, s.target / "tree", EXCLUDED),
        pairs=s.sizes.pairs,
        files=s.sizes.files,
    )


def copy_big_file(s):
    big = s.place / "big"
    make_big_file(big, s.sizes.big)
    return Workload(
        f"one file of {s.sizes.big >> 20:,} MiB, CopyFile",
        automated(s.kit("big", copy_lines=[f"CopyFile {big} - {s.target}"])),
        [
            Program("cp", ["cp", str(big), str(s.target)]),
            Program("rsync", ["rsync", str(big), str(s.target)]),
        ],
        wanted=1.00,
        bare=s.bare_run("file", big, s.target),
        prepare=lambda program: emptied(s.target),
        check=lambda: system("cmp", big, s.target / "big"),
        pairs=min(s.sizes.pairs, 9),
    )


def remove_tree(s):
    victim = s.target / "tree"

    def lay_out(_):
        emptied(s.target)
        system("cp", "-r", s.tree, victim)

    def is_gone():
        if victim.exists():
            raise SystemExit(f"'{victim}' is still there")

    return Workload(
        "RmDir of the tree",
        automated(s.kit("remove", copy_lines=[f"RmDir {victim} -"])),
        [
            Program("rm -rf", ["rm", "-rf", str(victim)]),
            Program("find -delete", ["find", str(victim), "-delete"]),
        ],
        wanted=1.05,
        bare=s.bare_run("remove", victim),
        prepare=lay_out,
        check=is_gone,
        pairs=s.sizes.pairs,
        files=s.sizes.files,
    )


def in_whole_tree(tree, is_right, what):
    if not all(is_right(os.stat(entry)) for entry in (tree, *tree.rglob("*"))):
        raise SystemExit(f"not all of '{tree}' has the {what}")


def change_modes(s):
    return Workload(
        "Chmod over the tree",
        automated(s.kit("mode", copy_lines=[f"Chmod {s.tree} - 755"])),
        [Program("chmod -R", ["chmod", "-R", "755", str(s.tree)])],
        wanted=0.85,
        bare=s.bare_run("mode", s.tree),
        prepare=lambda program: system("chmod", "-R", "700", s.tree),
        check=lambda: in_whole_tree(s.tree, lambda info: info.st_mode & 0o7777 == 0o755, "mode"),
        pairs=s.sizes.pairs,
        files=s.sizes.files,
    )


def change_owners(s):
    """To the user who runs this, which everybody may do."""
    owner = f"{pwd.getpwuid(os.getuid()).pw_name}:{grp.getgrgid(os.getgid()).gr_name}"
    return Workload(
        "Chown over the tree",
        automated(s.kit("own", copy_lines=[f"Chown {s.tree} - {owner}"])),
        [Program("chown -R", ["chown", "-R", owner, str(s.tree)])],
        wanted=1.00,
        bare=s.bare_run("own", s.tree),
        check=lambda: in_whole_tree(s.tree, lambda info: info.st_uid == os.getuid(), "owner"),
        pairs=s.sizes.pairs,
        files=s.sizes.files,
    )


AWK_EXPANDS = r"""
NR == FNR { name = $1; sub(/^[^ ]* /, ""); value[name] = $0; next }
{
    rest = $0
    line = ""
    while (match(rest, /\$\([^)]*\)/)) {
        line = line substr(rest, 1, RSTART - 1) value[substr(rest, RSTART + 2, RLENGTH - 3)]
        rest = substr(rest, RSTART + RLENGTH)
    }
    print line rest
}
"""


def expand_template(s):
    settings = make_settings(50)
    template, target = s.place / "template", s.place / "expanded"
    make_template(template, settings, s.sizes.references, "$(", ")")
    make_template(s.place / "template.sh", settings, s.sizes.references, "${", "}")
    expected = s.place / "expected"
    make_template(expected, [(value, "") for _, value in settings], s.sizes.references, "", "")
    kit = s.kit("expand", settings=settings, copy_lines=[f"Ini {template} {target}"])
    awk, sed = s.place / "expand.awk", s.place / "expand.sed"
    awk.write_text(AWK_EXPANDS, encoding="ascii")
    sed.write_text("".join(f"s|$({name})|{value}|g\n" for name, value in settings), encoding="ascii")
    return Workload(
        f"Ini: {template.stat().st_size / 1e6:.1f} MB, {s.sizes.references:,} references to 50 settings",
        automated(kit),
        [
            Program("envsubst", ["envsubst"], stdin=f"{template}.sh", stdout=str(target), environment=dict(settings)),
            Program("mawk", ["mawk", "-f", str(awk), str(kit / "setup.dat"), str(template)], stdout=str(target)),
            Program("sed, 50 expressions", ["sed", "-f", str(sed), str(template)], stdout=str(target)),
        ],
        wanted=0.40,
        bare=s.bare_run("expand", template, target, stdin=str(kit / "setup.dat")),
        check=lambda: system("cmp", target, expected),
        pairs=s.sizes.pairs,
    )


DASH_DOES_THE_SAME = r"""
while read -r name value; do
    eval "$name=\$value"
done < setup.dat
while read -r command a b control compare; do
    case $command in
    Copy) eval "$a=\$$b" ;;
    Exist) if [ -e "$a" ]; then eval "$b=true"; else eval "$b=false"; fi ;;
    esac
done < setup.int
printf '%s\n' '======================================================' \
    "             Welcome to the $product installer" \
    ' You will be asked a series of questions, for each a' \
    ' default answer will be provided (thus), to accept the' \
    ' default simply press <enter>, otherwise enter a new' \
    ' answer and press <enter>' \
    '======================================================' \
    '' "1. Install $product" "2. Upgrade $product" "3. Remove $product" '4. Exit' ''
printf 'What would you like to do[1]? '
read -r choice
printf '\n<Press enter to exit>'
read -r enter || true
"""


def start(s):
    """To the first prompt and out again."""
    settings = make_settings(50)
    init = [
        f"Copy copied_{i:02d} {settings[i][0]} - -" if i % 2 else f"Exist /etc/file-{i} there_{i:02d} - -"
        for i in range(30)
    ]
    kit = s.kit("start", settings=settings, init=init)
    (kit / "typed").write_text("4\n\n", encoding="ascii")
    (kit / "setup.sh").write_text(DASH_DOES_THE_SAME, encoding="ascii")

    def at_the_menu(name, *argv):
        return Program(name, list(argv), str(kit), stdin=str(kit / "typed"), stdout=str(kit / f"output-{name}"))

    ours = at_the_menu("installer", "./setup")
    script = at_the_menu("dash", "dash", "setup.sh")
    prints = at_the_menu("C program that only prints", str(s.build / "bench/only_print"), "output-installer")

    def say_the_same():
        for peer in (script, prints):
            if os.path.exists(peer.stdout):
                system("cmp", ours.stdout, peer.stdout)

    return Workload(
        "start to the first prompt and out, 50 settings, 30 init items",
        ours,
        [script],
        wanted=1.00,
        bare=prints,
        within=1.0,
        check=say_the_same,
        pairs=max(s.sizes.pairs, 15),
        at_once=20,
    )


def growing_kit(s, name, settings, lines):
    """Settings that refer forth and back, and copy lines that are controlled by them and refer to them."""
    names = [f"setting_{i:04d}" for i in range(settings)]
    values = [("product", "Bench")]
    for i in range(settings):
        other = names[i // 2] if i % 2 or i + 1 == settings else names[i + 1]
        values.append((names[i], "yes" if i % 10 == 1 else f"$({other})" if i % 10 else f"/nowhere/{i}"))
    script = [
        f"Exist $({names[i * 7 % settings]})/$({names[i * 3 % settings]}) flag_{i % 100} {names[i * 11 % settings]}"
        for i in range(lines)
    ]
    return automated(s.kit(name, settings=values, copy_lines=script), name)


def growth(s):
    """No peer: the same kit at a tenth of its size. What is wanted is the factor between them."""
    settings = s.sizes.lines * 2 // 5
    return Workload(
        f"{settings:,} settings that refer to each other, {s.sizes.lines:,} copy lines",
        growing_kit(s, "large", settings, s.sizes.lines),
        [growing_kit(s, "a tenth", settings // 10, s.sizes.lines // 10)],
        wanted=12.0,
        pairs=s.sizes.pairs,
    )


ALL = {
    "copy": copy_tree,
    "exclude": copy_tree_excluding,
    "big": copy_big_file,
    "remove": remove_tree,
    "mode": change_modes,
    "own": change_owners,
    "expand": expand_template,
    "start": start,
    "growth": growth,
}
