"""Zerko: the core library of a validator for 3D scenes.

Everything here comes from the compiled core; this file only re-exports it
under the names host layers and check classes are written against.
"""
from . import _core

# Every public and private name of the core, spelled and nested as the core
# binds it (Api, Constants, Parameters, Check, _Project, ...).
globals().update({name: getattr(_core, name) for name in dir(_core) if not name.startswith("__")})

__all__ = [name for name in dir(_core) if not name.startswith("__")]
