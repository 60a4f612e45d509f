#!/usr/bin/python
# Has a host answer the questions that rules ask.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: facts
short_description: Have a host answer the questions that rules ask
version_added: 1.0.0
author: The QVCatalog maintainers (@qvcatalog)
description:
  - Has C(qvcatalog facts) and C(qvcatalog rule) answer on the host. The same code answers as in the conditions of scripts.
options:
  words:
    description:
      - Only questions with one of these words in them, and applications with one in their name; all questions when left out.
        Other facts take the time of looking at all applications.
    type: list
    elements: str
    default: []
  rules:
    description: Rules to evaluate, each by a name of its own.
    type: dict
    default: {}
  native:
    description: Whether the parameters of the kernel count as well.
    type: bool
    default: false
attributes:
  check_mode:
    support: full
    description: Nothing is changed in any case.
seealso:
  - module: larkwen.qvcatalog.script
"""

EXAMPLES = r"""
- name: Is the new version in place, and is there room?
  larkwen.qvcatalog.facts:
    words: [version.os]
    rules:
      healthy: "${version(org.example.Editor)} == '2.0' AND ${filesystem(do=exists;absPath=/run/editor.pid)} == YES"

- name: Stop the rollout if not
  ansible.builtin.assert:
    that: ansible_facts.qvcatalog_rules.healthy
"""

RETURN = r"""
ansible_facts:
  description: Facts of the host.
  returned: always
  type: complex
  contains:
    qvcatalog:
      description: The answer to each question, under the question as a rule asks it; null without an answer.
      type: dict
      returned: always
      sample: {"version.os": "12.0.0"}
    qvcatalog_rules:
      description: Whether each rule holds.
      type: dict
      returned: always
      sample: {"healthy": true}
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.larkwen.qvcatalog.plugins.module_utils.command import FAILED, Command, CommandError


def facts_of(command, options):
    if options["rules"] and not options["words"] and not options["native"]:
        return {}
    try:
        answer = command.ask(["facts"] + (["--native"] if options["native"] else []) + options["words"])[1]
    except CommandError as error:
        if error.status == FAILED:  # no question has these words in it
            return {}
        raise
    return answer["facts"]


def rules_of(command, rules):
    held = {}
    for name, rule in rules.items():
        status, answer = command.ask(["rule", rule])
        if "value" not in answer:
            raise CommandError("the rule %s: %s" % (name, answer.get("error")), status)
        held[name] = answer["value"]
    return held


def main():
    module = AnsibleModule(
        argument_spec={
            "words": {"type": "list", "elements": "str", "default": []},
            "rules": {"type": "dict", "default": {}},
            "native": {"type": "bool", "default": False},
        },
        supports_check_mode=True)
    try:
        command = Command(module)
        module.exit_json(changed=False, ansible_facts={"qvcatalog": facts_of(command, module.params),
                                                       "qvcatalog_rules": rules_of(command, module.params["rules"])})
    except CommandError as error:
        module.fail_json(msg=error.reason)


if __name__ == "__main__":
    main()
