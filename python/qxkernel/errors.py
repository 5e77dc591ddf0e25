# SPDX-License-Identifier: LicenseRef-qxkernel
"""Failures of the kernel as Python exceptions."""


class Error(Exception):
    """A failure of the kernel.

    identifier  the stable key of the failure, never reworded
    arguments   dict of the named values that belong to it
    story       tuple of (module, line, identifier, ((key, value), ...)), innermost first
    point       index of the point at which a formula failed, None where there is none

    Pickles, compares by story.
    """

    def __init__(self, story=(), point=None):
        self.story = tuple(story)
        self.point = point
        super().__init__(self._message())

    @property
    def identifier(self):
        return self.story[0][2] if self.story else ""

    @property
    def arguments(self):
        return {key: value for entry in self.story for key, value in entry[3]}

    def _message(self):
        lines = []
        for module, line, identifier, arguments in self.story:
            text = ", ".join(f"{key} = {value}" if key else value for key, value in arguments)
            lines.append(f"{identifier} ({text})" if text else identifier)
        if self.point is not None and lines:
            lines[0] += f" at point {self.point}"
        return "\n".join(lines)

    def __reduce__(self):
        return type(self), (self.story, self.point)

    def __eq__(self, other):
        return type(self) is type(other) and (self.story, self.point) == (other.story, other.point)

    __hash__ = None


class Cancelled(Error):
    """A call ended because its CancelToken asked it to."""
