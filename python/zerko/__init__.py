"""Zerko: the core library of a validator for 3D scenes.

Everything here comes from the compiled core; this file only re-exports it
under the names host layers and check classes are written against.
"""
from . import _core
from ._core import (  # noqa: F401
    Api,
    Constants,
    Environment,
    Error,
    Logger,
    Mask,
    Scene,
    TypeMapping,
    _Assert,
    _Hierarchy,
    _CallBacks,
    _File,
    _format,
    _LocalEnv,
    _NamesControl,
    _Naming,
    _Settings,
    _Software,
    _Statistics,
    _Str,
    _str,
    version,
)

__all__ = [name for name in dir(_core) if not name.startswith("__")]
