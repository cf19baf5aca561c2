"""`_Settings.Check.Directory`: a folder of check modules that is a real `str`
(its text is the folder's path) around the core's directory object.

The core object rides along in `_core`; every property reads and writes
through it, so a directory in a list and the one in hand stay one directory.
"""

class Directory(str):
    """A folder of check modules; its text is the absolute, normalised path."""

    def __new__(cls, name, path, enable=True, locked=False):
        from . import _core  # the compiled module imports this one while it initialises

        return cls._wrap(_core._Settings.Check._DirectoryCore(name, path, enable, locked))

    @classmethod
    def _wrap(cls, core):
        self = str.__new__(cls, core.path)
        self._core = core
        return self

    @property
    def name(self):
        return self._core.name

    @property
    def enabled(self):
        return self._core.enabled

    @enabled.setter
    def enabled(self, value):
        self._core.enabled = value

    @property
    def locked(self):
        return self._core.locked

    @property
    def data(self):
        return self._core.data

    def __repr__(self):
        return f"Directory(name={self.name!r}, path={str.__str__(self)!r}, enabled={self.enabled})"
