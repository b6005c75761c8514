#!/usr/bin/python3
"""The Ansible role of contrib/ansible against three hosts, with the real ansible-core over the real ssh.

A host is a network namespace with an ssh server, an address that exists nowhere else, and its own /root, /srv and /tmp.
All of it is made inside namespaces of this test and is gone with them. The cases build on each other, as the life of a
fleet does, and so run in their order.

Run by ctest; by hand, as root: INSTALLER=build/dev/installer /usr/bin/python3 tests/fleet_test.py
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap
import time
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
INSTALLER = os.path.abspath(os.environ["INSTALLER"])
CONTRIB = os.path.join(REPOSITORY, "contrib", "ansible")
NAMESPACES = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
TOOLS = ["ansible-playbook", "ssh", "ssh-keygen", "dropbear", "dropbearkey", "ip", "unshare", "nsenter"]
HOSTS = {"north": "10.213.1", "south": "10.213.2", "west": "10.213.3"}  # a link each: .1 is the controller, .2 the host


def why_not():
    """The reason for which this test cannot run here, or none."""
    if os.getuid() != 0:
        return "only root can make namespaces with a network"
    missing = [tool for tool in TOOLS if shutil.which(tool) is None]
    if missing:
        return "these are missing, see scripts/setup fleet: " + ", ".join(missing)
    probe = "mount -t tmpfs none /run && ip netns add probe && ip link add probe0 type veth peer name probe1"
    if subprocess.run([*NAMESPACES, "sh", "-c", probe], capture_output=True).returncode != 0:
        return "namespaces are refused here"
    return None


def run(*words, **more):
    return subprocess.run(words, check=True, capture_output=True, encoding="utf-8", timeout=300, **more).stdout


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(textwrap.dedent(text))


class Host:
    def __init__(self, name, net, top):
        self.name = name
        run("ip", "netns", "add", name)
        run("ip", "link", "add", name, "type", "veth", "peer", "name", "eth0", "netns", name)
        run("ip", "address", "add", net + ".1/30", "dev", name)
        run("ip", "link", "set", name, "up")
        run("ip", "-n", name, "address", "add", net + ".2/30", "dev", "eth0")
        for device in ("lo", "eth0"):
            run("ip", "-n", name, "link", "set", device, "up")
        self.server = subprocess.Popen(["ip", "netns", "exec", name, "unshare", "--mount", "sh", "-euc", f"""
            for folder in root srv; do mount -t tmpfs -o mode=755 none /$folder; done
            mkdir -m 700 /root/.ssh
            cp '{top}/key.pub' /root/.ssh/authorized_keys
            exec dropbear -F -E -s -p {net}.2:22 -r '{top}/hostkey' -P /root/pid"""], stderr=subprocess.DEVNULL)

    def sh(self, command):
        """Runs a command as somebody at the host's own console would."""
        return run("nsenter", "--mount", "--target", str(self.server.pid), "sh", "-euc", command)


class Fleet(unittest.TestCase):
    rules = ["-e", '{"more": {"new_rules": true, "rules_file": "/srv/rules"}}']

    @classmethod
    def setUpClass(cls):
        cls.top = tempfile.mkdtemp(prefix="fleet.")
        cls.addClassCleanup(shutil.rmtree, cls.top)
        run("mount", "-t", "tmpfs", "none", "/run")
        run("ip", "link", "set", "lo", "up")
        run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", cls.top + "/key")
        run("dropbearkey", "-t", "ed25519", "-f", cls.top + "/hostkey")
        public = re.search(r"^ssh-ed25519 \S+", run("dropbearkey", "-y", "-f", cls.top + "/hostkey"), re.MULTILINE)[0]
        write(cls.top + "/known_hosts", "".join(f"{net}.2 {public}\n" for net in HOSTS.values()))
        cls.hosts = {name: Host(name, net, cls.top) for name, net in HOSTS.items()}
        write(cls.top + "/inventory", "[web]\n" + "".join(f"{name} ansible_host={net}.2\n" for name, net in HOSTS.items())
              + f"""
[web:vars]
ansible_user=root
ansible_ssh_private_key_file={cls.top}/key
ansible_ssh_common_args=-o UserKnownHostsFile={cls.top}/known_hosts -o ControlPath={cls.top}/%C
ansible_ssh_transfer_method=piped
ansible_python_interpreter=/usr/bin/python3
""")
        cls.kit = os.path.join(cls.top, "noticeboard")
        shutil.copytree(os.path.join(REPOSITORY, "examples", "noticeboard"), cls.kit)
        with open(os.path.join(CONTRIB, "example.yml"), encoding="utf-8") as file:
            example = file.read().replace("{{ playbook_dir }}/../../examples/noticeboard", cls.kit)
        write(cls.top + "/site.yml", example)
        for net in HOSTS.values():
            cls.wait_for(net + ".2")

    @classmethod
    def wait_for(cls, address):
        for _ in range(100):
            if subprocess.run(["ssh", "-i", cls.top + "/key", "-o", f"UserKnownHostsFile={cls.top}/known_hosts", "-o",
                               "BatchMode=yes", "root@" + address, "true"], capture_output=True).returncode == 0:
                return
            time.sleep(0.1)
        raise AssertionError("no ssh server at " + address)

    def play(self, *words, playbook="site.yml"):
        """Plays; gives what each host reports at the end, and everything printed."""
        environment = {**os.environ, "ANSIBLE_CONFIG": CONTRIB + "/ansible.cfg", "ANSIBLE_NOCOLOR": "1",
                       "ANSIBLE_LOCAL_TEMP": self.top + "/local", "ANSIBLE_HOME": self.top + "/home", "HOME": self.top,
                       "ANSIBLE_PIPELINING": "1", "ANSIBLE_RETRY_FILES_ENABLED": "0", "LC_ALL": "C.UTF-8",
                       "TMPDIR": self.top}
        played = subprocess.run(["ansible-playbook", "-i", self.top + "/inventory", "-e",
                                 json.dumps({"board_program": INSTALLER}),
                                 *words, os.path.join(self.top, playbook)], capture_output=True, encoding="utf-8",
                                timeout=300, env=environment, stdin=subprocess.DEVNULL)
        recap = dict(re.findall(r"^(\w+)\s+: ok=\d+\s+(changed=\d+\s+unreachable=\d+\s+failed=\d+)", played.stdout,
                                re.MULTILINE))
        reports = {}
        for name in HOSTS:
            self.assertIn(name, recap, played.stdout + played.stderr)
            counts = {word: int(count) for word, count in re.findall(r"(\w+)=(\d+)", recap[name])}
            reports[name] = ("failed" if counts["failed"] or counts["unreachable"] else
                             "changed" if counts["changed"] else "unchanged")
        self.assertEqual(played.returncode != 0, "failed" in reports.values(), played.stdout + played.stderr)
        self.assertEqual([name for name in os.listdir(self.top) if name.startswith("kit.")], [])
        return reports, played.stdout

    def all_report(self, word):
        return {name: word for name in HOSTS}

    def site(self, name):
        """Everything in a host's /srv, but for the log."""
        return self.hosts[name].sh("find /srv -path '*.log*' -o -type f -exec sha256sum {} + -o -printf '%p %m %u\\n' | sort")

    def test_01_the_playbook_and_the_role_are_sound(self):
        checked = run("ansible-playbook", "--syntax-check", "-i", "localhost,", os.path.join(CONTRIB, "example.yml"),
                      env={**os.environ, "ANSIBLE_CONFIG": CONTRIB + "/ansible.cfg", "HOME": self.top})
        self.assertIn("playbook: ", checked)
        if shutil.which("ansible-lint") is None:
            self.skipTest("there is no ansible-lint")
        run("ansible-lint", "--offline", "--nocolor", "-p", "example.yml", "roles/installer_kit", cwd=CONTRIB,
            env={**os.environ, "HOME": self.top})

    def test_02_check_mode_tells_what_would_change_and_changes_nothing(self):
        before = {name: self.site(name) for name in HOSTS}
        self.assertEqual(self.play("--check")[0], self.all_report("changed"))
        self.assertEqual({name: self.site(name) for name in HOSTS}, before)

    def test_03_an_installation_that_fails_on_one_host_is_reported_for_that_host_alone(self):
        self.hosts["west"].sh("echo mine >/srv/www")  # where the kit needs a folder
        reports, shown = self.play()
        self.assertEqual(reports, {"north": "changed", "south": "changed", "west": "failed"})
        self.assertIn("the copy script stopped at a line that failed", shown)
        self.assertIn("/srv/www", re.search(r"fatal: \[west\]: (.*)", shown)[1])
        for name in ("north", "south"):
            self.assertIn(f"<title>Board of {name}</title>", self.hosts[name].sh("cat /srv/www/noticeboard/index.html"))
            self.assertEqual(self.hosts[name].sh("stat -c %U:%G /srv/notices"), "www-data:www-data\n")
        self.assertEqual(self.hosts["west"].sh("cat /srv/www"), "mine\n")

    def test_04_a_second_run_changes_nothing_and_tries_the_failed_host_again(self):
        before = {name: self.site(name) for name in ("north", "south")}
        logs = {name: self.hosts[name].sh("cat /srv/kits/noticeboard/setup.log") for name in before}
        self.assertEqual(self.play()[0], {"north": "unchanged", "south": "unchanged", "west": "failed"})
        self.assertEqual({name: self.site(name) for name in before}, before)
        self.assertEqual({name: self.hosts[name].sh("cat /srv/kits/noticeboard/setup.log") for name in before}, logs)

    def test_05_a_host_that_was_mended_is_installed_and_the_others_stay(self):
        self.hosts["west"].sh("rm /srv/www; rm -r /srv/kits/noticeboard/installed")
        self.assertEqual(self.play()[0], {"north": "unchanged", "south": "unchanged", "west": "changed"})
        self.assertEqual(self.play()[0], self.all_report("unchanged"))

    def test_06_a_new_kit_is_an_upgrade_that_keeps_the_notices(self):
        self.hosts["south"].sh("printf 'Ann\\nnow\\nhello\\n' >/srv/notices/20260101-000000-1.notice")
        with open(self.kit + "/files/pages/board.css", "a", encoding="utf-8") as file:
            file.write("h1 { color: green; }\n")
        os.rename(self.kit + "/files/pages/help/contact.html", self.kit + "/files/pages/help/whom-to-ask.html")
        self.assertEqual(self.play()[0], self.all_report("changed"))
        for host in self.hosts.values():
            self.assertIn("color: green", host.sh("cat /srv/www/noticeboard/board.css"))
            # What the new kit does not hold is not there for its copy script to find.
            self.assertEqual(host.sh("ls /srv/kits/noticeboard/files/pages/help").split(),
                             ["index.html", "moderators.draft", "whom-to-ask.html"])
        self.assertIn("hello", self.hosts["south"].sh("cat /srv/notices/*.notice"))
        self.assertEqual(self.play()[0], self.all_report("unchanged"))

    def test_07_a_new_answer_is_a_change_and_an_unusable_one_is_refused(self):
        for host in self.hosts.values():
            host.sh("echo No rules. >/srv/rules")
        with open(self.top + "/site.yml", encoding="utf-8") as file:
            text = file.read()
        write(self.top + "/rules.yml", text.replace("        installer_kit_settings:\n", "        installer_kit_settings: "
              '"{{ board_settings | combine(more) }}"\n        board_settings:\n'))
        self.assertEqual(self.play(*self.rules, playbook="rules.yml")[0], self.all_report("changed"))
        self.assertEqual(self.play(*self.rules, playbook="rules.yml")[0], self.all_report("unchanged"))
        for host in self.hosts.values():
            self.assertEqual(host.sh("cat /srv/www/noticeboard/rules.txt"), "No rules.\n")
        reports, shown = self.play("-e", '{"more": {"title": "two\\nlines"}}', playbook="rules.yml")
        self.assertEqual(reports, self.all_report("failed"))
        self.assertIn("the value of setting 'title' has blanks around it, or several lines", shown)
        self.assertEqual(self.play(*self.rules, playbook="rules.yml")[0], self.all_report("unchanged"))

    def test_08_a_handler_upgrades_where_something_was_notified(self):
        with open(self.top + "/rules.yml", encoding="utf-8") as file:
            text = file.read()
        write(self.top + "/notify.yml", text + """\
  tasks:
    - name: Lose a program
      ansible.builtin.file:
        path: /srv/www/cgi-bin/noticeboard/list.cgi
        state: absent
      when: inventory_hostname != "north"
      notify: Upgrade the kit
    - name: Have done with it
      ansible.builtin.debug:
      changed_when: true
      when: done is defined
      notify: Remove the kit
""")
        self.assertEqual(self.play(*self.rules, playbook="notify.yml")[0],
                         {**self.all_report("changed"), "north": "unchanged"})
        for host in self.hosts.values():
            host.sh("test -x /srv/www/cgi-bin/noticeboard/list.cgi")

    def test_09_a_removal_takes_the_board_away_once(self):
        absent = ("-e", "board_state=absent")
        self.assertEqual(self.play(*absent, "--check")[0], self.all_report("changed"))
        self.hosts["north"].sh("test -f /srv/www/noticeboard/index.html")
        self.assertEqual(self.play(*absent)[0], self.all_report("changed"))
        for host in self.hosts.values():
            self.assertNotIn("www", host.sh("ls /srv"))
            self.assertNotIn("notices", host.sh("ls /srv"))
        self.assertEqual(self.play(*absent)[0], self.all_report("unchanged"))

    def test_10_a_handler_removes_where_something_was_notified(self):
        self.assertEqual(self.play(*self.rules, "-e", "done=yes", playbook="notify.yml")[0], self.all_report("changed"))
        for host in self.hosts.values():
            self.assertNotIn("www", host.sh("ls /srv"))


if __name__ == "__main__":
    if "IN_NAMESPACES" not in os.environ:
        reason = why_not()
        if reason:
            print("skipped: " + reason)
            sys.exit(77)
        os.environ["IN_NAMESPACES"] = "yes"
        os.execvp(NAMESPACES[0], [*NAMESPACES, sys.executable, os.path.abspath(__file__), *sys.argv[1:]])
    unittest.main(failfast=True)
