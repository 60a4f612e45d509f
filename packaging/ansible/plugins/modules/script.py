#!/usr/bin/python
# The script of steps that the service of a host carries out. The action plug-in of the same name
# reads it on the controller.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: script
short_description: Have the service of a host carry out a script
version_added: 1.0.0
author: The QVCatalog maintainers (@qvcatalog)
description:
  - Sends a script of installation and maintenance steps to the service C(QVCatalogHelperXPC) of the host, which carries
    them out as root, in order, up to the first one that fails.
  - C(qvcatalog lint) looks for mistakes and C(qvcatalog plan) at what would change before anything is sent. If the plan is
    sure that no step changes anything, nothing is sent and the task is C(ok); if it is sure that a step stops the script,
    nothing is sent and the task fails.
  - In check mode the plan is the answer.
  - The module needs to run as root, and root has to be allowed to use C(qvcatalog run) there, which the packages see to.
options:
  src:
    description:
      - A file with the script, on the controller, looked for as M(ansible.builtin.copy) does. The forms are those of
        C(qvcatalog run), as people write it (JSON with comments) or any property list. Files encrypted by Ansible Vault
        are decrypted.
      - One of I(src), I(content) and I(steps) is required.
    type: path
  remote_src:
    description: Whether I(src) is a file of the host instead.
    type: bool
    default: false
  content:
    description:
      - The script as text, for example the result of a template.
    type: str
  encoding:
    description: How I(content) is written. A binary property list has to be in base64.
    type: str
    choices: [text, base64]
    default: text
  steps:
    description:
      - The steps themselves, as they stand in the C(steps) of a script.
    type: list
    elements: dict
  strict:
    description: Whether warnings of C(qvcatalog lint) keep the script from being sent, as mistakes do.
    type: bool
    default: false
  lint:
    description: Whether C(qvcatalog lint) looks at the script.
    type: bool
    default: true
  force:
    description: Whether the script is sent without a plan, even if it would change nothing or is sure to fail.
    type: bool
    default: false
  timeout:
    description:
      - How many seconds the module waits for the service. The service carries the script out to its end all the same, and
        M(larkwen.qvcatalog.runs) tells how it went.
    type: int
  secrets:
    description:
      - Texts that nothing may print or record. A script that would have one of them in a place that the service records (a
        path, a rule, the name of an application or the key of a preference) is not sent. They are left out of the result.
      - Variables that are encrypted by C(!vault), as opposed to whole files, count without being named here.
    type: list
    elements: str
    default: []
attributes:
  check_mode:
    support: full
    description: The plan is the answer.
  diff_mode:
    support: full
    description: The items that the plan is about, with type, mode, owner and group before and after.
seealso:
  - module: larkwen.qvcatalog.runs
  - module: larkwen.qvcatalog.facts
"""

EXAMPLES = r"""
- name: Upgrade the application
  larkwen.qvcatalog.script:
    src: upgrade.json

- name: See what would change, and on which hosts (with --check --diff)
  larkwen.qvcatalog.script:
    steps:
      - {operation: if, rule: "${version(of=os;greaterThan=11)} == YES"}
      - {operation: changeMode, item: /opt/example, mode: "0755", recursive: true}
      - {operation: endIf}

- name: A password in the arguments of a tool, of which the record holds the length and digest
  larkwen.qvcatalog.script:
    steps:
      - operation: runTool
        tool: /opt/example/bin/set-password
        arguments: ["{{ application_password }}"]
    secrets: ["{{ application_password }}"]
"""

RETURN = r"""
sent:
  description: Whether the script was sent to the service.
  returned: always
  type: bool
run:
  description: The ID of the run in the host's record.
  returned: when it was sent and the host keeps a record
  type: str
steps:
  description:
    - The steps, each with C(index) from 0, C(text) and C(outcome). After a run the outcomes are those of the record (changed,
      unchanged, done, skipped, failed); done is a step of which it is not known whether it changed anything.
    - Of a plan they are changes, unchanged, skipped, fails, raises, runs and not reached, each with a C(certainty).
  returned: success or failure, if the host keeps a record or the plan is the answer
  type: list
  elements: dict
depends:
  description: The lines of the plan that are not sure, with the reason.
  returned: unless forced
  type: list
  elements: str
opaque:
  description: The steps that may do anything, such as tools.
  returned: unless forced
  type: list
  elements: str
findings:
  description: What C(qvcatalog lint) found, each with C(rule), C(severity), C(reason), C(mend) and its place in the source.
  returned: unless I(lint=false)
  type: list
  elements: dict
failed_step:
  description: The step that stopped the script, with C(index), C(text), and in the source C(line) and C(column).
  returned: when a step failed
  type: dict
"""

import base64

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.common.text.converters import to_bytes, to_text
from ansible_collections.larkwen.qvcatalog.plugins.module_utils.command import (
    CHANGES, DONE, FAILED, FAULTY, Command, CommandError, error_text)

import json


class Script(object):
    def __init__(self, module):
        self.module = module
        self.options = module.params
        self.result = {"changed": False, "sent": False}
        self.command = Command(module)
        self.data = self.source()
        self.plan = None

    def source(self):
        """The bytes of the script."""
        if self.options["remote_src"]:
            try:
                with open(self.options["src"], "rb") as file:
                    return file.read()
            except (IOError, OSError) as error:
                raise CommandError("%s: %s" % (self.options["src"], error.strerror))
        return base64.b64decode(self.options["content"])  # which the action plug-in has made of any other source

    def look(self):
        """Fails on mistakes; notes the findings."""
        arguments = ["lint"] + (["--strict"] if self.options["strict"] else []) + ["-"]
        status, answer = self.command.ask(arguments, self.data)
        file = answer["files"][0]
        if "error" in file:
            raise CommandError("the script cannot be read: %s" % file["error"], status)
        self.result["findings"] = file["findings"]
        if status == FAULTY:
            self.fail("the script has mistakes and was not sent: %s" % "; ".join(
                finding_text(finding) for finding in self.result["findings"]
                if self.options["strict"] or finding["severity"] == "error"))

    def make_plan(self):
        arguments = ["plan"] + (["--all"] if self.module._diff else []) + ["-"]
        status, plan = self.command.ask(arguments, self.data)
        if status not in (DONE, FAILED, CHANGES):
            raise CommandError("qvcatalog plan ended with the status %d" % status, status)
        self.plan = plan
        lines = plan["steps"]
        self.refuse_secrets(lines)
        for certainty in ("depends", "opaque"):
            self.result[certainty] = ["step %d (%s): %s" % (line["index"] + 1, line["step"], line.get("reason", ""))
                                      for line in lines if line["certainty"] == certainty]
        if self.module._diff:
            self.result["diff"] = difference(lines)
        if "stopsAt" in plan:
            line = lines[plan["stopsAt"]]
            self.result["failed_step"] = {"index": line["index"], "text": line["step"]}
            self.show_plan()
            self.fail("nothing was sent: step %d (%s) is sure to fail: %s"
                      % (line["index"] + 1, line["step"], error_text(line.get("error"))))
        return status == CHANGES

    def refuse_secrets(self, lines):
        """The service records what a plan shows of a step."""
        secrets = [secret for secret in self.options["secrets"] if secret]
        for line in lines:
            texts = [line["step"]] + [effect["path"] for effect in line.get("effects", [])]
            if any(secret in text for secret in secrets for text in texts):
                self.fail("nothing was sent: step %d would write a secret into the host's record, which holds paths, "
                          "rules and names as they are, and arguments and values by length and digest"
                          % (line["index"] + 1))

    def show_plan(self):
        self.result["steps"] = [
            dict((key, line[key]) for key in ("index", "certainty", "outcome", "reason", "holds") if key in line)
            for line in self.plan["steps"]]
        for shown, line in zip(self.result["steps"], self.plan["steps"]):
            shown["text"] = line["step"]
        self.result["msg"] = "%(changes)d change something, %(unchanged)d nothing, %(skipped)d skipped, " \
                             "%(fails)d fail, %(depends)d depend, %(opaque)d opaque" % self.plan

    def send(self):
        arguments = ["run", "--json", "--no-lint"]
        if self.options["timeout"]:
            arguments += ["--timeout", str(self.options["timeout"])]
        status, output = self.command.run(arguments + ["-"], self.data)
        steps, outcome = [], None
        for number, line in enumerate(to_text(output).splitlines()):
            try:
                record = json.loads(line)
            except ValueError as error:
                raise CommandError("line %d of what qvcatalog run printed is no JSON: %s" % (number + 1, error), status)
            if number == 0:
                self.command.check_format(record)
            if record.get("record") == "step":
                del record["record"]
                steps.append(record)
            elif record.get("record") == "outcome":
                outcome = record
        self.result["sent"] = status not in (FAULTY, 4, 5)
        if outcome is None:
            self.result["changed"] = self.result["sent"]  # nobody knows
            raise CommandError(record.get("error", "qvcatalog run told no outcome"), status, record)
        if steps:
            self.result["steps"] = steps
        if "run" in outcome:
            self.result["run"] = outcome["run"]
        self.result["changed"] = self.has_changed(steps)
        if not outcome["success"]:
            self.fail_at(outcome, steps)

    def has_changed(self, steps):
        """`done` changes something unless the plan was sure that it would not."""
        planned = dict((line["index"], line) for line in self.plan["steps"]) if self.plan else {}
        if not steps:  # the host keeps no record
            return True
        for step in steps:
            line = planned.get(step["index"], {})
            is_sure = line.get("certainty") == "exact" and line.get("outcome") == "unchanged"
            if step["outcome"] == "changed" or (step["outcome"] == "done" and not is_sure):
                return True
        return False

    def fail_at(self, outcome, steps):
        index = outcome["errorScriptStepIndex"]
        step = {"index": index}
        step.update((key, outcome[key]) for key in ("line", "column") if key in outcome)
        step.update((("text", recorded["text"]) for recorded in steps if recorded["index"] == index))
        place = ", line %(line)d, column %(column)d" % step if "line" in step else ""
        text = " (%s)" % step["text"] if "text" in step else ""
        if index < 0:
            self.fail("the script failed: %s" % error_text(outcome.get("error")))
        self.result["failed_step"] = step
        self.fail("step %d%s%s failed: %s" % (index + 1, text, place, error_text(outcome.get("error"))))

    def fail(self, reason):
        self.result["msg"] = reason
        self.module.fail_json(**self.result)

    def main(self):
        if self.options["lint"]:
            self.look()
        may_change = True
        if self.module.check_mode or not self.options["force"]:
            may_change = self.make_plan()
        if self.module.check_mode:
            self.show_plan()
            self.result["changed"] = may_change
            for line in (self.result["depends"] + self.result["opaque"])[:10]:
                self.module.warn("not sure: %s" % line)
        elif may_change:
            self.send()
        else:
            self.show_plan()
        self.module.exit_json(**self.result)


def finding_text(finding):
    place = "line %d, column %d: " % (finding["line"], finding["column"]) if "line" in finding else ""
    return "%s%s [%s]" % (place, finding["reason"], finding["rule"])


def state_text(path, state):
    target = " -> " + state["target"] if "target" in state else ""
    return "%s  %s %s %s:%s%s\n" % (path, state["type"], state["mode"], state["user"], state["group"], target)


def difference(lines):
    """The items before the script and after it, in the form that Ansible shows."""
    states = {}
    for line in lines:
        for effect in line.get("effects", []):
            first = states.setdefault(effect["path"], [effect.get("before"), None])
            first[1] = effect.get("after")
    changed = [(path, pair) for path, pair in states.items() if pair[0] != pair[1]]
    before, after = ("".join(state_text(path, pair[i]) for path, pair in changed if pair[i]) for i in (0, 1))
    return {"before": before, "after": after, "before_header": "before the script", "after_header": "after the script"}


def main():
    module = AnsibleModule(
        argument_spec={
            "src": {"type": "path"},
            "remote_src": {"type": "bool", "default": False},
            # As a whole, for Ansible would leave out each word of a secret list from all that it prints.
            "content": {"type": "str", "no_log": True},
            "encoding": {"type": "str", "choices": ["text", "base64"], "default": "text"},
            "steps": {"type": "list", "elements": "dict"},
            "strict": {"type": "bool", "default": False},
            "lint": {"type": "bool", "default": True},
            "force": {"type": "bool", "default": False},
            "timeout": {"type": "int"},
            "secrets": {"type": "list", "elements": "str", "default": [], "no_log": True},
        },
        required_one_of=[("src", "content", "steps")],
        mutually_exclusive=[("src", "content", "steps")],
        supports_check_mode=True)
    script = None
    try:
        script = Script(module)
        script.main()
    except CommandError as error:
        result = dict(script.result) if script else {"changed": False}
        result["msg"] = error.reason
        if "findings" in error.answer:
            result["findings"] = error.answer["findings"]
            result["msg"] += ": " + "; ".join(finding_text(finding) for finding in error.answer["findings"])
        module.fail_json(**result)


if __name__ == "__main__":
    main()
