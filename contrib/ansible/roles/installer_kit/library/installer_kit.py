#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Lays out a kit of the installer on a host, runs it unattended and tells from its log what came of it."""

DOCUMENTATION = r"""
---
module: installer_kit
short_description: Install, upgrade or remove what a kit of the installer brings
description:
  - Unpacks a kit, writes the answers into its settings file, runs its program with C(-automate), and reads the result
    from the log that the program writes. Its exit status does not tell, for it is 0 also when the action failed.
  - The program is run only when the kit or the answers are not those of the last successful run.
options:
  dir:
    description: The kit's folder on the host. The program runs there and leaves its log there.
    type: path
    required: true
  name:
    description: The program's name, which its scripts share.
    type: str
    default: setup
  state:
    description: Whether what the kit brings is to be there.
    type: str
    choices: [present, absent]
    default: present
  archive:
    description: The kit as a tar file on the host; not looked at in check mode.
    type: path
  checksum:
    description: What tells this kit from another, such as the archive's checksum. Without it, the kit is taken for the
      one that ran last.
    type: str
  settings:
    description: Settings and their values, which replace the defaults in the kit's settings file.
    type: dict
    default: {}
  proof:
    description: Paths, from the kit's folder, that exist exactly when the kit is installed.
    type: list
    elements: path
    default: []
  remove_tag:
    description: The section that removes, run with C(-special).
    type: str
    default: remove
  force:
    description: Run the program although nothing has changed; only where the kit was installed before.
    type: bool
    default: false
  timeout:
    description: Seconds after which the program is ended, and has failed.
    type: int
    default: 600
"""

RETURN = r"""
action: {description: The heading of the action that ran (Install, Upgrade, or a section's name)., type: str}
result: {description: The program's own result line., type: str}
errors: {description: Errors in the log of this run., type: list}
failed_lines: {description: How many lines of the copy script failed and were passed over., type: int}
stdout: {description: What the program printed., type: str}
log: {description: The log's path., type: str}
"""

import hashlib
import json
import os
import re
import subprocess
import tarfile

from ansible.module_utils.basic import AnsibleModule

STATE_FILE = ".installer_kit.json"
BUILT_IN = {"host", "system_dir", "current_dir", "action"}
LONGEST_LINE = 999

# Day, month, date, time, process, level, text.
LOG_LINE = re.compile(r"^.{20} \[(\d+)\] (Error|Info|Debug): (.*)$")
OPENED = "Log file opened in '"
COMPLETED = "Copy script completed successfully"
STOPPED = "Stop on fail set, stopping..."
PASSED_OVER = "Stop on fail NOT set, continuing..."
BEGUN = "Processing copy script..."
NO_QUESTIONS = "Error loading questions"
RESULT = re.compile(r"^ ?Success \d+ .*$", re.MULTILINE)
COPYING = re.compile(r"^(?:Copying files|Removing files|Executing)\[", re.MULTILINE)


class Refused(Exception):
    """Something that the caller asked for cannot be done; nothing has been run."""


def as_value(name, value):
    """The text of a setting's value in a settings file."""
    text = {True: "true", False: "false", None: ""}[value] if value is None or isinstance(value, bool) else value
    if not isinstance(text, (str, int, float)):
        raise Refused("setting '%s' is no text, number or truth value" % name)
    text = str(text)
    if re.search(r"\s|^#|^$", name) or name in BUILT_IN:
        raise Refused("'%s' cannot be the name of a setting here" % name)
    if text != text.strip() or re.search(r"[\n\r\0]", text):
        raise Refused("the value of setting '%s' has blanks around it, or several lines" % name)
    if len(("%s %s" % (name, text)).encode()) > LONGEST_LINE:
        raise Refused("the value of setting '%s' is too long for a settings file" % name)
    return text


def answered(defaults, settings):
    """The text of a settings file with other values, and the names that it did not declare."""
    values = {name: as_value(name, value) for name, value in settings.items()}
    lines, seen = [], set()
    for line in defaults.splitlines():
        name = (line.split() or [""])[0]
        if name in values and name not in seen:
            line = ("%s %s" % (name, values[name])).strip()
        elif name in values:
            continue
        seen.add(name)
        lines.append(line)
    undeclared = [name for name in values if name not in seen]
    lines += [("%s %s" % (name, values[name])).strip() for name in undeclared]
    return "\n".join(lines) + "\n", undeclared


def read_archive(path):
    """Names, contents and modes of the files in a kit's archive."""
    files = {}
    with tarfile.open(path) as archive:
        for member in archive:
            name = os.path.normpath(member.name)
            if member.isdir():
                continue
            if not member.isfile() or name.startswith(("/", "../")) or name == STATE_FILE:
                raise Refused("'%s' has no place in a kit" % member.name)
            files[name] = (archive.extractfile(member).read(), 0o755 if member.mode & 0o111 else 0o644)
    return files


def write_file(path, content, mode):
    """Puts a whole file into its place, so that none is ever half written."""
    os.makedirs(os.path.dirname(path), mode=0o755, exist_ok=True)
    beside = path + ".new"
    with open(os.open(beside, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, mode), "wb") as file:
        file.write(content)
    os.chmod(beside, mode)
    os.replace(beside, path)


class Kit:
    """A kit's folder on this host."""

    def __init__(self, module):
        self.module = module
        self.wanted = module.params
        self.dir = self.wanted["dir"]
        self.name = self.wanted["name"]
        self.log = self.path(self.name + ".log")
        self.noted = self.read_note()

    def path(self, name):
        return os.path.join(self.dir, name)

    def read_note(self):
        try:
            with open(self.path(STATE_FILE), encoding="utf-8") as file:
                return json.load(file)
        except (OSError, ValueError):
            return {}

    def note(self, **facts):
        self.noted.update(facts)
        write_file(self.path(STATE_FILE), json.dumps(self.noted, indent=1, sort_keys=True).encode(), 0o600)

    def identity(self):
        """Which kit and answers a run is of: a hash, for the values may be secret."""
        settings = {name: as_value(name, value) for name, value in self.wanted["settings"].items()}
        text = json.dumps([self.checksum(), settings], sort_keys=True)
        return hashlib.sha256(text.encode()).hexdigest()

    def checksum(self):
        return self.wanted["checksum"] or self.noted.get("kit", "")

    def proofs(self):
        return [self.path(name) for name in self.wanted["proof"]]

    def is_installed(self):
        there = [os.path.exists(path) for path in self.proofs()]
        return all(there) if there else bool(self.noted.get("installed"))

    def is_gone(self):
        return not self.noted.get("installed") and not any(os.path.exists(path) for path in self.proofs())

    def is_current(self):
        return self.is_installed() and self.noted.get("installed") == self.identity()

    def lay_out(self):
        """Writes the kit's files and takes away those that only an earlier kit had."""
        files = read_archive(self.wanted["archive"])
        settings = self.name + ".dat"
        if self.name not in files or settings not in files:
            raise Refused("the kit holds no '%s' or no '%s'" % (self.name, settings))
        text, undeclared = answered(files[settings][0].decode("utf-8", "surrogateescape"), self.wanted["settings"])
        if undeclared:
            self.module.warn("not declared in %s: %s" % (settings, ", ".join(undeclared)))
        files[settings] = (text.encode("utf-8", "surrogateescape"), 0o600)
        stale = [name for name in self.noted.get("files", []) if name not in files]
        self.note(files=sorted({*files, *self.noted.get("files", [])}))
        for name in stale:
            if os.path.lexists(self.path(name)):
                os.remove(self.path(name))
        for name, (content, mode) in files.items():
            write_file(self.path(name), content, mode)
        self.note(files=sorted(files))

    def run(self, *words):
        """Runs the program; what there is to say about the run, with "msg" when it failed."""
        command = [os.path.join(".", self.name), *words, "-automate"]
        program = subprocess.Popen(command, cwd=self.dir, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, preexec_fn=lambda: os.umask(0o022))
        try:
            console = program.communicate(timeout=self.wanted["timeout"])[0]
        except subprocess.TimeoutExpired:
            program.kill()
            console = program.communicate()[0]
        console = console.decode("utf-8", "replace")
        return judged(program.returncode, console, self.log_of(program.pid))

    def log_of(self, process):
        """Level and text of what a process wrote to the log, which may have been rotated meanwhile."""
        lines = []
        for name in [self.log + str(number) for number in (4, 3, 2, 1, 0)] + [self.log]:
            try:
                with open(name, encoding="utf-8", errors="replace", newline="\n") as file:
                    found = [LOG_LINE.match(line.rstrip("\n")) for line in file]
            except OSError:
                continue
            for level, text in [(line[2], line[3]) for line in found if line and int(line[1]) == process]:
                if level == "Info" and text.startswith(OPENED):
                    lines = []  # an earlier process may have had the same number
                lines.append((level, text))
        return lines


def judged(status, console, lines):
    """What came of a run. The log decides; the console gives the reason where the log has none."""
    errors = [text for level, text in lines if level == "Error"]
    info = [text for level, text in lines if level == "Info"]
    heading = re.search(r"^\[([^\]]*)\]$", console, re.MULTILINE)
    success = RESULT.search(console)
    told = {"action": heading[1] if heading else "", "result": success[0].strip() if success else "", "stdout": console,
            "errors": errors, "failed_lines": info.count(PASSED_OVER)}
    reason = why_failed(status, info, errors) or why_partial(console)
    if reason:
        shown = re.findall(r"^(?:Error: |Failed, )(.+)$", console, re.MULTILINE)
        causes = list(dict.fromkeys(shown + errors[-3:]))
        told["msg"] = ": ".join([reason, "; ".join(causes)]) if causes else reason
    return told


def why_failed(status, info, errors):
    if status < 0:
        return "the program was ended by signal %d" % -status
    if status > 0:
        return "the program ended with status %d" % status
    if not info:
        return "the program left nothing in its log"
    if NO_QUESTIONS in errors:
        return "the kit asks no questions for this action"
    if STOPPED in info:
        return "the copy script stopped at a line that failed"
    if BEGUN not in info:
        return "the program did not come to its copy script"
    if COMPLETED not in info:
        return "the copy script did not come to its end"
    return None


def why_partial(console):
    """A file that could not be copied or removed is told between the dots, and does not make its line fail."""
    begun = COPYING.search(console)
    dots = RESULT.split(console[begun.end():])[0] if begun else ""
    return "some files could not be handled" if re.search(r"^Error: ", dots, re.MULTILINE) else None


def make_present(kit):
    needless = kit.is_gone() if kit.wanted["force"] else kit.is_current()
    if needless:
        return {"changed": False}
    kit.identity()  # refuses unusable settings, also in check mode
    if kit.module.check_mode:
        return {"changed": True}
    kit.lay_out()
    kit.note(installed="")  # until it has succeeded
    told = kit.run()
    missing = [path for path in kit.proofs() if not os.path.exists(path)]
    if "msg" not in told and missing:
        told["msg"] = "the program reports success, but these are missing: " + ", ".join(missing)
    if "msg" not in told:
        kit.note(installed=kit.identity(), kit=kit.checksum())
    return {"changed": True, **told}


def make_absent(kit):
    if kit.is_gone():
        return {"changed": False}
    if kit.module.check_mode:
        return {"changed": True}
    told = kit.run("-special", kit.wanted["remove_tag"])
    left = [path for path in kit.proofs() if os.path.exists(path)]
    if "msg" not in told and left:
        told["msg"] = "the program reports success, but these are still there: " + ", ".join(left)
    if "msg" not in told:
        kit.note(installed="")
    return {"changed": True, **told}


def main():
    module = AnsibleModule(
        argument_spec={
            "dir": {"type": "path", "required": True},
            "name": {"type": "str", "default": "setup"},
            "state": {"type": "str", "choices": ["present", "absent"], "default": "present"},
            "archive": {"type": "path"},
            "checksum": {"type": "str"},
            "settings": {"type": "dict", "default": {}},
            "proof": {"type": "list", "elements": "path", "default": []},
            "remove_tag": {"type": "str", "default": "remove"},
            "force": {"type": "bool", "default": False},
            "timeout": {"type": "int", "default": 600},
        },
        required_if=[("state", "present", ("archive",))],
        supports_check_mode=True,
    )
    kit = Kit(module)
    try:
        told = make_present(kit) if module.params["state"] == "present" else make_absent(kit)
    except (Refused, OSError, tarfile.TarError) as problem:
        module.fail_json(msg=str(problem), log=kit.log)
    told["log"] = kit.log
    if "msg" in told:
        module.fail_json(**told)
    for error in told.get("errors", []):
        module.warn("in the log of a successful run: " + error)
    module.exit_json(**told)


if __name__ == "__main__":
    main()
