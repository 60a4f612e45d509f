#!/usr/bin/python
# The record of past runs of a host.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: runs
short_description: Read the record of past runs of a host
version_added: 1.0.0
author: The QVCatalog maintainers (@qvcatalog)
description:
  - Reads with C(qvcatalog log) which client had which script carried out for whom, and how it ended.
  - The user sees the runs that the host's journal lets that user read; root sees all.
options:
  run:
    description: One run, by its ID or the beginning of it, with its steps.
    type: str
  client:
    description: Runs of a client, by its name or signing identifier.
    type: str
  user:
    description: Runs on behalf of a user, by name or number.
    type: str
  since:
    description: Runs from then on, "2026-11-22 14:30" on the host's clock, or 90m, 12h or 7d ago.
    type: str
  item:
    description: Runs that touched a path, or what is in it, with their steps.
    type: path
  failed:
    description: Whether only runs that failed are wanted.
    type: bool
    default: false
  last:
    description: How many of them, the latest; 0 for all.
    type: int
    default: 20
attributes:
  check_mode:
    support: full
    description: Nothing is changed in any case.
seealso:
  - module: larkwen.qvcatalog.script
"""

EXAMPLES = r"""
- name: What failed since yesterday
  larkwen.qvcatalog.runs:
    since: 24h
    failed: true
  register: audit

- name: Each step of the run that a task has caused
  larkwen.qvcatalog.runs:
    run: "{{ upgrade.run }}"
"""

RETURN = r"""
runs:
  description:
    - The runs, the latest last, each with C(run), C(begin), C(outcome), C(steps) (their number), C(client), C(identifier),
      C(team), C(codeHash), C(user), C(process), C(microseconds), of a failure C(failedStep) and C(error), and C(results) (the
      steps) where I(run) or I(item) is given.
  returned: always
  type: list
  elements: dict
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.larkwen.qvcatalog.plugins.module_utils.command import Command, CommandError


def main():
    module = AnsibleModule(
        argument_spec={
            "run": {"type": "str"},
            "client": {"type": "str"},
            "user": {"type": "str"},
            "since": {"type": "str"},
            "item": {"type": "path"},
            "failed": {"type": "bool", "default": False},
            "last": {"type": "int", "default": 20},
        },
        supports_check_mode=True)
    options = module.params
    arguments = ["log"]
    for name in ("client", "user", "since", "item"):
        if options[name]:
            arguments += ["--" + name, options[name]]
    if options["failed"]:
        arguments.append("--failed")
    arguments += ["--last", str(options["last"])] if options["last"] > 0 else ["--all"]
    if options["run"]:
        arguments.append(options["run"])
    try:
        answer = Command(module).ask(arguments)[1]
        module.exit_json(changed=False, runs=answer["runs"])
    except CommandError as error:
        module.fail_json(msg=error.reason)


if __name__ == "__main__":
    main()
