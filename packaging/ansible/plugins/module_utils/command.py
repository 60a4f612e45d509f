# The command `qvcatalog` of the host that a module runs on, by its JSON alone.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import shutil

# The number that the JSON of a command begins with. A command that prints none is older; one that
# prints a higher number may mean something else by the rest.
FORMAT = 1

# Exit statuses of every command; see docs/command.md.
DONE = 0
FAILED = 1
USAGE = 2
FAULTY = 3
CHANGES = 10

OLDER = "the qvcatalog of this host is older than this collection (%s): upgrade it, for example with " \
        "the role larkwen.qvcatalog.service"


class CommandError(Exception):
    """No answer. `answer` holds what the command said of it, if anything."""

    def __init__(self, reason, status=None, answer=None):
        super(CommandError, self).__init__(reason)
        self.reason = reason
        self.status = status
        self.answer = answer or {}


def error_text(error):
    """The words of an error as `--json` writes it, with its domain and code."""
    if isinstance(error, dict):
        inner = error.get("$error", {})
        return "%s (%s %s)" % (inner.get("description"), inner.get("domain"), inner.get("code"))
    return str(error)


class Command(object):
    """Runs `qvcatalog`; `module` is an AnsibleModule."""

    def __init__(self, module):
        self._module = module
        self._path = shutil.which("qvcatalog", path="/usr/local/bin:/usr/bin:/bin")
        if self._path is None:
            raise CommandError("this host has no qvcatalog: install its package, for example with "
                               "the role larkwen.qvcatalog.service")

    def run(self, arguments, data=None):
        """The exit status and standard output; `data` are bytes for standard input."""
        status, output, errors = self._module.run_command(
            [self._path] + arguments, data=data, binary_data=True, errors="surrogate_then_replace",
            environ_update={"LC_ALL": "C.UTF-8"})
        if not output.strip():
            raise CommandError("qvcatalog %s answered nothing (status %d): %s"
                               % (arguments[0], status, errors.strip()), status)
        return status, output

    def ask(self, arguments, data=None):
        """The exit status and the answer of a command that prints one JSON value."""
        status, output = self.run(arguments + ["--json"], data)
        try:
            answer = json.loads(output)
        except ValueError as error:
            raise CommandError("qvcatalog %s printed no JSON (status %d): %s"
                               % (arguments[0], status, error), status)
        if isinstance(answer, dict) and "error" in answer and "exitStatus" in answer:
            if "unknown option" in answer["error"]:
                raise CommandError(OLDER % answer["error"], status)
            raise CommandError(answer["error"], status, answer)
        self.check_format(answer)
        return status, answer

    @staticmethod
    def check_format(answer):
        number = answer.get("format") if isinstance(answer, dict) else None
        if not isinstance(number, int):
            raise CommandError(OLDER % "it does not tell the format of its JSON")
        if number > FORMAT:
            raise CommandError("the qvcatalog of this host is newer than this collection: it "
                               "prints format %d, and this reads %d. Upgrade the collection"
                               % (number, FORMAT))
