"""Core of the scene validator"""

from collections.abc import Iterator

import zerko.Scene


class Logger:
    """
    Static logger: every call returns at once; delivery is to the root logger.
    """

    @staticmethod
    def debug(message: object, **kwargs) -> None: ...

    @staticmethod
    def info(message: object, **kwargs) -> None: ...

    @staticmethod
    def warning(message: object, **kwargs) -> None: ...

    @staticmethod
    def error(message: object, **kwargs) -> None: ...

    @staticmethod
    def exception(message: object, **kwargs) -> None: ...

class TypeMapping:
    """Translates host-specific types to the unified types of the scene."""

    def __init__(self, table: dict) -> None: ...

    def get(self, name: str) -> object: ...

    def exist(self, type: str) -> bool: ...

class Mask:
    """Choice sets of the user interface, filtered by the host's type table."""

    def __init__(self, type_mapping: TypeMapping) -> None: ...

    class Item:
        """A list of constants with a label, a field name and a mapped flag."""

        def __init__(self, *constants, name: str = '', attr: str = '', mapped: bool = False) -> None: ...

        @property
        def name(self) -> object: ...

        @property
        def attr(self) -> object: ...

        @property
        def mapped(self) -> bool: ...

        def __len__(self) -> int: ...

        def __getitem__(self, arg: object, /) -> object: ...

        def __iter__(self) -> Iterator: ...

        def __contains__(self, arg: object, /) -> bool: ...

        def __eq__(self, arg: object, /) -> bool: ...

        def __repr__(self) -> str: ...

        __hash__: None = None

    class Ghost(Mask._Set):
        def __init__(self) -> None: ...

    class Type(Mask._Set):
        def __init__(self) -> None: ...

    class Result(Mask._Set):
        def __init__(self) -> None: ...

class Environment:
    """
    Where the settings, projects and statistics of the tool live for a host.
    """

    def __init__(self) -> None: ...

    user_home: str = '/root'

    name: str = '.zerko'

    @property
    def target(self) -> str: ...

    @property
    def scope(self) -> str: ...

    @property
    def root(self) -> str: ...

    def get_settings_file(self) -> str: ...

    def get_settings_directory(self) -> str: ...

    def get_projects_directory(self) -> str: ...

    def get_statistics_file(self) -> str: ...

    @staticmethod
    def decode_user(path: str) -> str: ...

    @staticmethod
    def encode_user(path: str) -> str: ...

version: tuple = (0, 8, 20)

class Api:
    """A common class to have access to all program components."""

    def __init__(self, operator: zerko.Scene.Operator, environment: object | None, export_options: object | None = None, checks: object | None = None) -> None: ...

    @property
    def version(self) -> object: ...

    @property
    def constants(self) -> object: ...

    @property
    def logger(self) -> object: ...

    @property
    def masks(self) -> object: ...

    @property
    def callbacks(self) -> _CallBacks: ...

    @property
    def env(self) -> object: ...

    def shutdown(self) -> None: ...
