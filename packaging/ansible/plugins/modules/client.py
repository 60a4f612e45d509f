#!/usr/bin/python
# A client that the service of a host accepts.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: client
short_description: Allow a client of the service on a host
version_added: 1.0.0
author: The QVCatalog maintainers (@qvcatalog)
description:
  - Lays down or takes away what makes the service of a host accept a client - the code requirement in C(clients.d), the
    certificate of its authority in C(anchors.d), and the list of revoked certificates and programs.
  - One fault in these folders makes all of them count for nothing. The new state is therefore put together beside them and
    judged by C(qvcatalog clients) first; if it has a fault that the present state has not, everything stays as it was.
  - Each file is replaced as a whole.
options:
  name:
    description: The name of the client in the service's log and record - letters, digits and C(._-).
    type: str
  requirement:
    description: The code requirement, one line. Needed to allow a client that is not there yet.
    type: str
  anchor:
    description: The certificate, in PEM, of the authority that the client's chain of certificates ends at.
    type: str
  anchor_folder:
    description: Where the anchor counts; C(vendor) for C(anchor apple generic), C(trusted) for C(anchor trusted).
    type: str
    choices: [vendor, trusted, platform]
    default: vendor
  revoked:
    description: SHA-256 of certificates, or code directory hashes of programs, that are refused from now on.
    type: list
    elements: str
    default: []
  state:
    description:
      - With C(absent) the requirement and the anchor of this name are removed, and what I(revoked) lists is taken from the
        list of what is revoked.
    type: str
    choices: [present, absent]
    default: present
  folder:
    description: Where the service has its configuration.
    type: path
    default: /etc/qvcatalog
attributes:
  check_mode:
    support: full
    description: The new state is judged, and not put in place.
  diff_mode:
    support: full
    description: The files before and after.
"""

EXAMPLES = r"""
- name: Allow the application's own installer
  larkwen.qvcatalog.client:
    name: editor
    requirement: anchor apple generic and identifier "org.example.editor" and certificate leaf[subject.OU] = EDITORTEAM
    anchor: "{{ lookup('ansible.builtin.file', 'editor-root.pem') }}"

- name: Refuse a release that turned out bad
  larkwen.qvcatalog.client:
    revoked: [4f1d0f5c6a0f7d5dcc5c2b8c5a4b8e7f0a3d2c1b]
"""

RETURN = r"""
files:
  description: The files that were written or removed, or would be.
  returned: success
  type: list
  elements: str
faults:
  description: What C(qvcatalog clients) finds wrong with the new state.
  returned: when it is refused
  type: list
  elements: str
"""

import os
import re
import shutil
import tempfile

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.common.text.converters import to_bytes, to_text
from ansible_collections.larkwen.qvcatalog.plugins.module_utils.command import Command, CommandError

FOLDERS = ("anchors.d", "clients.d")
REVOKED = "anchors.d/revoked"


def content_of(path):
    """The bytes of a file; nothing if it is not there."""
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


def write(path, content):
    """A plain file that others can read, in folders that others can search."""
    old = os.umask(0o022)
    try:
        os.makedirs(os.path.dirname(path), mode=0o755, exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)
            file.flush()
            os.fsync(file.fileno())
    finally:
        os.umask(old)


def wanted_files(options):
    """What each file is to hold; nothing for a file that is to go."""
    files = {}
    is_present = options["state"] == "present"
    if options["name"]:
        requirement = "clients.d/%s.requirement" % options["name"]
        anchor = "anchors.d/%s/%s.pem" % (options["anchor_folder"], options["name"])
        if not is_present:
            files[requirement] = files[anchor] = None
        else:
            if options["requirement"]:
                files[requirement] = to_bytes(options["requirement"].strip() + "\n")
            if options["anchor"]:
                files[anchor] = to_bytes(options["anchor"].strip() + "\n")
    if options["revoked"]:
        lines = to_text(content_of(os.path.join(options["folder"], REVOKED)) or b"").splitlines()
        named = [each.strip().lower() for each in options["revoked"]]
        if is_present:
            lines += [each for each in named if each not in [line.strip().lower() for line in lines]]
        else:
            lines = [line for line in lines if line.strip().lower() not in named]
        files[REVOKED] = to_bytes("".join(line + "\n" for line in lines)) if lines else None
    return files


def faults_of(command, stage, folder):
    """The faults of a staged state, told of the files as they will be in `folder`."""
    answer = command.ask(["clients", "--configuration", stage, "--in", stage])[1]
    return [fault.replace(stage, folder) for fault in answer["faults"]]


def put_in_place(stage, options, changed):
    # An anchor comes before the requirement that needs it, and goes after it.
    order = sorted(changed, reverse=options["state"] == "absent")
    for name in order:
        path = os.path.join(options["folder"], name)
        if changed[name] is None:
            os.unlink(path)
            continue
        old = os.umask(0o022)
        os.makedirs(os.path.dirname(path), mode=0o755, exist_ok=True)
        os.umask(old)
        os.rename(os.path.join(stage, name), path)


def apply(module, command, options):
    changed = {}
    for name, content in wanted_files(options).items():
        if content_of(os.path.join(options["folder"], name)) != content:
            changed[name] = content
    result = {"changed": bool(changed), "files": [os.path.join(options["folder"], name) for name in sorted(changed)]}
    if module._diff:
        result["diff"] = [
            {"before": to_text(content_of(os.path.join(options["folder"], name)) or b"", errors="replace"),
             "after": to_text(content or b"", errors="replace"),
             "before_header": name, "after_header": name} for name, content in sorted(changed.items())]
    if not changed:
        return result
    # Beside the folder, so that a file of it takes its place in one step.
    stage = tempfile.mkdtemp(prefix=".qvcatalog-", dir=os.path.dirname(options["folder"]))
    try:
        for folder in FOLDERS:
            if os.path.isdir(os.path.join(options["folder"], folder)):
                shutil.copytree(os.path.join(options["folder"], folder), os.path.join(stage, folder), symlinks=True)
        before = faults_of(command, stage, options["folder"])
        for name, content in changed.items():
            if content is None:
                os.unlink(os.path.join(stage, name))
            else:
                write(os.path.join(stage, name), content)
        if options["state"] == "present":
            faults = [fault for fault in faults_of(command, stage, options["folder"]) if fault not in before]
            if faults:
                module.fail_json(msg="nothing was changed, for the service would accept nobody: %s" % "; ".join(faults),
                                 faults=faults, changed=False)
        if not module.check_mode:
            put_in_place(stage, options, changed)
    finally:
        shutil.rmtree(stage)
    return result


def main():
    module = AnsibleModule(
        argument_spec={
            "name": {"type": "str"},
            "requirement": {"type": "str"},
            "anchor": {"type": "str"},
            "anchor_folder": {"type": "str", "choices": ["vendor", "trusted", "platform"], "default": "vendor"},
            "revoked": {"type": "list", "elements": "str", "default": []},
            "state": {"type": "str", "choices": ["present", "absent"], "default": "present"},
            "folder": {"type": "path", "default": "/etc/qvcatalog"},
        },
        required_one_of=[("name", "revoked")],
        required_by={"requirement": "name", "anchor": "name"},
        supports_check_mode=True)
    options = module.params
    name = options["name"]
    if name is not None and not re.match(r"^[A-Za-z0-9][A-Za-z0-9._-]*$", name):
        module.fail_json(msg="%r cannot be the name of a client: letters, digits and ._- make one" % name)
    for each in options["revoked"]:
        if not re.match(r"^([0-9A-Fa-f]{40}|[0-9A-Fa-f]{64})$", each.strip()):
            module.fail_json(msg="%r is neither a SHA-256 nor a code directory hash in hexadecimal digits" % each)
    try:
        if name and options["state"] == "present" and not options["requirement"] and not os.path.exists(
                os.path.join(options["folder"], "clients.d/%s.requirement" % name)):
            raise CommandError("the client %s is not allowed yet, so it needs a requirement" % name)
        module.exit_json(**apply(module, Command(module), options))
    except CommandError as error:
        module.fail_json(msg=error.reason)
    except OSError as error:
        module.fail_json(msg="%s: %s" % (error.filename, error.strerror))


if __name__ == "__main__":
    main()
