# Reads a script on the controller, so that one module with all that it needs goes to the host.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import base64
import json

from ansible.errors import AnsibleError
from ansible.module_utils.common.text.converters import to_bytes, to_text
from ansible.module_utils.parsing.convert_bool import boolean
from ansible.parsing.yaml.objects import AnsibleVaultEncryptedUnicode
from ansible.plugins.action import ActionBase


def encrypted_texts(value, found):
    """Adds the plain text of each variable that is encrypted by itself."""
    if isinstance(value, AnsibleVaultEncryptedUnicode):
        found.add(to_text(value.data))
    elif isinstance(value, dict):
        for item in value.values():
            encrypted_texts(item, found)
    elif isinstance(value, (list, tuple)):
        for item in value:
            encrypted_texts(item, found)


class ActionModule(ActionBase):
    TRANSFERS_FILES = False

    def run(self, tmp=None, task_vars=None):
        result = super(ActionModule, self).run(tmp, task_vars)
        options = dict(self._task.args)
        try:
            script = self._source(options)
        except AnsibleError as error:
            result.update(failed=True, msg=to_text(error))
            return result
        if script is not None:
            secrets = set()
            encrypted_texts(dict(task_vars or {}), secrets)
            named = options.get("secrets") or []
            # The script holds them as JSON, where a quote has a backslash before it.
            options["secrets"] = list(named) + [
                secret for secret in secrets
                if secret and (to_bytes(secret) in script or to_bytes(json.dumps(secret)[1:-1]) in script)]
            options.update(content=to_text(base64.b64encode(script)), encoding="base64")
        result.update(self._execute_module(module_name="larkwen.qvcatalog.script", module_args=options,
                                           task_vars=task_vars))
        result.pop("invocation", None)  # which would show the steps
        return result

    def _source(self, options):
        """Takes the script out of the options; nothing if the module has to refuse them, or reads a file of the host."""
        given = [name for name in ("src", "content", "steps") if options.get(name) is not None]
        if len(given) != 1 or (given[0] == "src" and boolean(options.get("remote_src", False), strict=False)):
            return None
        value = options.pop(given[0])
        if given[0] == "src":
            path = self._loader.get_real_file(self._find_needle("files", value))
            try:
                with open(path, "rb") as file:
                    return file.read()
            finally:
                self._loader.cleanup_tmp_file(path)
        if given[0] == "steps":
            if not isinstance(value, list):
                raise AnsibleError("steps has to be a list of steps, not a %s" % type(value).__name__)
            # A step on each line, so that the number of the line in a message is that of the step.
            return to_bytes("[%s]" % ",\n".join(json.dumps(step) for step in value))
        if options.get("encoding") == "base64":
            try:
                return base64.b64decode(value, validate=True)
            except (TypeError, ValueError) as error:
                raise AnsibleError("content is not base64: %s" % to_text(error))
        # A template that yields JSON arrives as what it means.
        return to_bytes(value if isinstance(value, str) else json.dumps(value))
