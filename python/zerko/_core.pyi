"""Core of the scene validator"""

from collections.abc import Iterator, Sequence
import logging
from typing import overload

import zerko


_ENCODING: str = 'utf-8'

def _str(value: object | None) -> object:
    """The value as a _Str when it is a string; anything else unchanged."""

def _format(template: object, args: object) -> object:
    """Fills the {} placeholders of template from the sequence args."""

class _Naming:
    @staticmethod
    def is_attribute(name: str) -> bool: ...

    @staticmethod
    def is_private(name: str) -> bool: ...

    @staticmethod
    def force_ascii(name: str, title: bool = False) -> object: ...

    @staticmethod
    def latin_filter(text: str) -> object: ...

    @staticmethod
    def en_ru_filter(text: str) -> object: ...

    @staticmethod
    def _char_filter(text: str, chars: Sequence[tuple[int, int]]) -> object: ...

    @staticmethod
    def space_filter(text: str) -> object: ...

    @staticmethod
    def ghost_filter(text: str) -> object: ...

    @staticmethod
    def strip(name: str, chars: str) -> object: ...

class _NamesControl:
    def __init__(self) -> None: ...

    def clear(self) -> None: ...

    def exists(self, name: str) -> bool: ...

    def append(self, name: str) -> None: ...

    def remove(self, name: str) -> None: ...

    def rename(self, remove: str, append: str) -> None: ...

    def get_init(self, name: str) -> object: ...

    def _get_next(self, name: str) -> object: ...

    def _get_alike(self, name: str) -> list: ...

    def __len__(self) -> int: ...

class Error:
    """The error types of the library with their fixed sentences."""

class Logger:
    """
    Static logger: every call returns at once; delivery is to the root logger.
    """

    _root: logging.RootLogger = ...

    @staticmethod
    def debug(message: object | None, **kwargs) -> None: ...

    @staticmethod
    def info(message: object | None, **kwargs) -> None: ...

    @staticmethod
    def warning(message: object | None, **kwargs) -> None: ...

    @staticmethod
    def error(message: object | None, **kwargs) -> None: ...

    @staticmethod
    def exception(message: object | None, **kwargs) -> None: ...

    @staticmethod
    def _flush() -> None:
        """Waits until every message issued so far has reached the root logger."""

def _shutdown_logger() -> None: ...

class _Assert:
    """Structural assertions on foreign objects and names."""

    class Environment:
        @staticmethod
        def is_valid(instance: object | None) -> bool: ...

    class Parameters:
        class Input:
            @staticmethod
            def attribute(name: object | None) -> None: ...

    class Json:
        @staticmethod
        def clean(data: object | None) -> object: ...

class _CallBacks:
    """Named events that the host's user interface subscribes to."""

    def __init__(self) -> None: ...

    class List:
        def __init__(self) -> None: ...

        def register(self, function: object | None) -> None: ...

        def delete(self, function: object | None) -> None: ...

        def clear(self) -> None: ...

        def __call__(self, *args) -> None: ...

        def __len__(self) -> int: ...

        def __contains__(self, function: object | None) -> bool: ...

    def clear(self) -> None: ...

    @property
    def empty_scan_selection(self) -> _CallBacks.List: ...

    @property
    def used_scan_selection(self) -> _CallBacks.List: ...

    @property
    def empty_scan_result(self) -> _CallBacks.List: ...

    @property
    def lost_export_directory(self) -> _CallBacks.List: ...

    @property
    def empty_export_selection(self) -> _CallBacks.List: ...

    @property
    def export_skipped(self) -> _CallBacks.List: ...

    @property
    def export_success(self) -> _CallBacks.List: ...

    @property
    def projects_synchronized(self) -> _CallBacks.List: ...

    @property
    def projects_response_closed(self) -> _CallBacks.List: ...

    @property
    def projects_saved(self) -> _CallBacks.List: ...

    @property
    def buffer_loaded(self) -> _CallBacks.List: ...

    @property
    def http_no_response(self) -> _CallBacks.List: ...

class Constants:
    """The closed vocabularies of the system."""

    class Check:
        class Mode:
            """Enum to switch check logic."""

            Selection: int = 0

            Project: int = 1

        class Category:
            Scene: zerko._Str = 'scene'

            Object: zerko._Str = 'object'

            Mesh: zerko._Str = 'mesh'

            MeshNonManifold: zerko._Str = 'mesh non-manifold'

            Mapping: zerko._Str = 'mapping'

            Material: zerko._Str = 'material'

            Lod: zerko._Str = 'lod'

            Project: zerko._Str = 'project'

        class Result:
            Pass: zerko._Str = 'pass'

            Info: zerko._Str = 'info'

            Fail: zerko._Str = 'fail'

            Error: zerko._Str = 'error'

    class Export:
        class Format:
            FBX: zerko._Str = 'fbx'

        class Mode:
            """Enum to switch export logic."""

            Choose: int = 0

            Project: int = 1

            Local: int = 2

    class Scene:
        class Type:
            Ghost: zerko._Str = 'ghost'

            SceneRoot: zerko._Str = 'sceneRoot'

            Transform: zerko._Str = 'transform'

            Mesh: zerko._Str = 'mesh'

            Locator: zerko._Str = 'locator'

            LodGroup: zerko._Str = 'lodGroup'

    class Plugin:
        class Status:
            """Aliases of bool values."""

            Success: bool = True

            Failure: bool = False

        class Target:
            DCC_Maya: zerko._Str = 'maya'

            DCC_3dsMax: zerko._Str = '3dsmax'

            DCC_Blender: zerko._Str = 'blender'

            Standalone: zerko._Str = 'standalone'

    class Name:
        class Filter:
            LATIN: zerko._Str = 'LATIN'

            EN_RU: zerko._Str = 'EN_RU'

            EMPTY: zerko._Str = 'EMPTY'

            SPACE: zerko._Str = 'SPACE'

            GHOST: zerko._Str = 'GHOST'

class TypeMapping:
    """Translates host-specific types to the unified types of the scene."""

    def __init__(self, table: dict) -> None: ...

    def get(self, name: str) -> object: ...

    def exist(self, type: str) -> bool: ...

    @property
    def _table(self) -> dict: ...

    @property
    def _types(self) -> set: ...

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

    class _Set:
        """A list of items; items with an attr are also fields."""

        def __init__(self, *items) -> None: ...

        def __len__(self) -> int: ...

        def __getitem__(self, arg: object, /) -> object: ...

        def __iter__(self) -> Iterator: ...

        def __getattr__(self, arg: str, /) -> object: ...

        def __repr__(self) -> str: ...

    class Ghost(Mask._Set):
        def __init__(self) -> None: ...

    class Type(Mask._Set):
        def __init__(self) -> None: ...

    class Result(Mask._Set):
        def __init__(self) -> None: ...

    @property
    def _mapping(self) -> TypeMapping: ...

class Scene:
    """
    The namespace contains classes to communicate
        with the opened scene in dcc application.
    """

    class _QueryOp:
        """An abstract class to get hierarchy info from the scene."""

        def __init__(self) -> None: ...

        def object_exists(self, path: str) -> bool: ...

        def get_type(self, path: str) -> str: ...

        def get_parent(self, path: str) -> object: ...

        def get_children(self, path: str) -> list[str]: ...

    class _SelectionScope:
        """Restores the selection of its start when the block ends."""

        def __enter__(self) -> object: ...

        def __exit__(self, *args) -> bool: ...

    class Operator(Scene._QueryOp):
        """An abstract class to communicate with the scene."""

        def __init__(self) -> None: ...

        TYPE_MAPPING: dict = {}

        @property
        def type_mapping(self) -> TypeMapping: ...

        def map_type(self, name: str) -> object: ...

        def get_selection(self) -> list[str]: ...

        def get_selection_roots(self) -> list[str]: ...

        def select(self, *args) -> None: ...

        def selection_manager(self) -> Scene._SelectionScope: ...

        def register_scene_opened_callback(self, function: object) -> None: ...

        def register_shutdown_callback(self, function: object) -> None: ...

        def delete_callbacks(self) -> None: ...

        def export(self, roots: Sequence[str], file_path: str, type: str, args: object, automatic_uv: bool = False, triangulate: bool = False, reset_xforms: bool = False) -> None: ...

        def get_current_file(self) -> str: ...

        def directory_dialog(self, starting: str = '~', caption: str = '') -> str: ...

        def file_dialog(self, starting: str = '~', caption: str = '', file_filter: str = '') -> str: ...

        def query_filedata(self) -> object: ...

        def embed_filedata(self, data: object) -> None: ...

        def erase_filedata(self) -> None: ...

        @staticmethod
        def name_from_path(path: str) -> object: ...

    class _Virtual(Scene._QueryOp):
        """
        A thread safe implementation of the scene query
                that does not depend on a specific dcc api.
        """

        def __init__(self, operator: Scene.Operator) -> None: ...

        class _Location:
            """A short description of the scene object."""

            def __init__(self, name: str, path: str, type: str, children: object | None = None) -> None: ...

            @property
            def name(self) -> object: ...

            @property
            def path(self) -> object: ...

            @property
            def type(self) -> object: ...

            @property
            def children(self) -> list: ...

            def __eq__(self, arg: object, /) -> bool: ...

            def __hash__(self) -> int: ...

            def __repr__(self) -> str: ...

        def offload(self) -> None: ...

        def upload(self, roots: Sequence[str], clear: bool = True) -> None:
            """
            Reads the roots and their subtrees from the operator (on the host's thread).
            """

        def object_exists(self, path: str) -> bool: ...

        def get_type(self, path: str) -> str: ...

        def get_parent(self, path: str) -> object: ...

        def get_children(self, path: str) -> list[str]: ...

        def get_locations(self, roots: Sequence[str]) -> list: ...

        def __len__(self) -> int: ...

        @property
        def _operator(self) -> Scene.Operator: ...

class _Hierarchy:
    """Compare algorithm of a single hierarchy with the specific pattern."""

    @overload
    def __init__(self, query_operator: Scene._Virtual) -> None: ...

    @overload
    def __init__(self, query_operator: Scene._Virtual, check_classes: object | None) -> None: ...

    class Pattern:
        """A class to describe hierarchy pattern."""

        def __init__(self) -> None: ...

        class _Range:
            def __init__(self) -> None: ...

            @property
            def minimum(self) -> int: ...

            @minimum.setter
            def minimum(self, arg: int, /) -> None: ...

            @property
            def maximum(self) -> int: ...

            @maximum.setter
            def maximum(self, arg: int, /) -> None: ...

        class Rule:
            """A class to describe an item of the hierarchy pattern."""

            def __init__(self, config: object, checklist: object | None = None) -> None: ...

            @property
            def stamp(self) -> object: ...

            @property
            def name(self) -> object: ...

            @property
            def icon(self) -> object: ...

            @property
            def color(self) -> object: ...

            @property
            def regex(self) -> object: ...

            @property
            def types(self) -> list: ...

            @property
            def range(self) -> _Hierarchy.Pattern._Range: ...

            def get_range(self) -> set[int]: ...

            def is_optional(self) -> bool: ...

            def __eq__(self, arg: object, /) -> bool: ...

            def __hash__(self) -> int: ...

        class Scope:
            """Connection between a pattern item and its children."""

            def __init__(self, rule: _Hierarchy.Pattern.Rule | None, children: object | None = None) -> None: ...

            @property
            def rule(self) -> _Hierarchy.Pattern.Rule: ...

            @property
            def children(self) -> list: ...

        class _Sorter:
            """
            A sort algorithm for hierarchy pattern items for more effective search.
            """

            @staticmethod
            def sort(pattern: list) -> None: ...

            @staticmethod
            def has_dependency(definition: Sequence[str], usage: Sequence[str]) -> bool: ...

        def set(self, project_settings_record: object) -> None:
            """Builds the pattern from a project record's rules and rule tree."""

        def get(self) -> list: ...

        def get_ghost(self) -> _Hierarchy.Pattern.Scope: ...

        def has_ghost(self) -> bool: ...

        @property
        def _rules(self) -> dict: ...

        @property
        def _hierarchy(self) -> list: ...

    class Anchor:
        """An extended logic for regular expression."""

        def __init__(self) -> None: ...

        class _State:
            def __init__(self) -> None: ...

            def set(self, expressions: object) -> None: ...

            def set_expressions(self, structure: object) -> None: ...

            def make_hash(self) -> None: ...

            def clone(self) -> _Hierarchy.Anchor._State: ...

            def apply(self, clone: _Hierarchy.Anchor._State) -> None: ...

            def __add__(self, arg: _Hierarchy.Anchor._State, /) -> _Hierarchy.Anchor._State: ...

            def get_hash(self) -> int: ...

            def __hash__(self) -> int: ...

            def __eq__(self, arg: object, /) -> bool: ...

            @property
            def expressions(self) -> dict: ...

        @property
        def state(self) -> _Hierarchy.Anchor._State: ...

        @staticmethod
        def findall(text: str, unpacked: bool = False) -> list[str]: ...

        @staticmethod
        def find(text: str) -> list[str]: ...

        @staticmethod
        def has_definition(text: str) -> bool: ...

        @staticmethod
        def unpack_anchor(expression: str) -> tuple[str, str]: ...

        @staticmethod
        def same_scope(scope: str, path: str) -> bool: ...

        @staticmethod
        def merge_begins(anchor: str, expr_part: str, expr_source: str) -> str: ...

        @staticmethod
        def merge_ends(anchor: str, expr_part: str, expr_source: str) -> str: ...

        @staticmethod
        def count_shared_symbols(source: str, target: str) -> int: ...

        @staticmethod
        def get_scope_sorted(path: str, array: object) -> list: ...

        def match(self, expression: str, name: str, path: str) -> bool: ...

        def replace_anchors(self, expression: str, path: str) -> str: ...

        def apply_anchors(self, expression: str) -> str: ...

        def extract_anchors(self, expression: str, name: str, path: str) -> None: ...

        def has_anchor(self, expression: str) -> bool: ...

        def has_sub_anchor(self, expression: str) -> bool: ...

    class Search:
        """Compare algorithm of a single hierarchy layer with the pattern layer."""

        def __init__(self, operator: Scene._Virtual) -> None: ...

        class Response:
            @property
            def location(self) -> object: ...

            @property
            def scope(self) -> _Hierarchy.Pattern.Scope: ...

        class Result:
            def is_empty(self) -> bool: ...

            def __len__(self) -> int: ...

            def __iter__(self) -> Iterator: ...

        @property
        def logic(self) -> _Hierarchy.Anchor: ...

        def layer(self, roots: Sequence[str], scopes: object, exact: bool = True) -> _Hierarchy.Search.Result: ...

    @property
    def pattern(self) -> _Hierarchy.Pattern: ...

    @property
    def search(self) -> _Hierarchy.Search: ...

    def root_scopes(self, roots: Sequence[str]) -> list[list[str]]: ...

    def ghost_scope_match(self, roots: Sequence[str]) -> bool: ...

    def is_ghost_root(self, ghost: _Hierarchy.Pattern.Scope, path: str) -> bool: ...

    def mask(self, roots: Sequence[str]) -> list[str]: ...

    def is_valid(self, roots: Sequence[str]) -> bool: ...

    def find_anchors(self) -> None: ...

    def match(self, roots: Sequence[str], pattern: object) -> bool: ...

    def cut(self, scope: Sequence[str]) -> list[tuple[list[str], bool]]:
        """
        Masks, takes away and validates candidate hierarchies until nothing is claimed.
        """

    @staticmethod
    def _is_optional(pattern: object) -> bool: ...

    @staticmethod
    def _is_deadlock(response: _Hierarchy.Search.Response) -> bool: ...

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

class _LocalEnv(Environment):
    """The environment the system falls back on."""

    def __init__(self) -> None: ...

    @property
    def _settings(self) -> str: ...

    @property
    def _projects(self) -> str: ...

class _Software:
    """The probe for the running host."""

    @staticmethod
    def detect() -> str: ...

version: tuple = (0, 8, 20)

class Api:
    """A common class to have access to all program components."""

    def __init__(self, operator: Scene.Operator, environment: object | None, export_options: object | None = None, checks: object | None = None) -> None: ...

    @property
    def version(self) -> object: ...

    @property
    def constants(self) -> object: ...

    @property
    def logger(self) -> object: ...

    @property
    def masks(self) -> object: ...

    @property
    def _op(self) -> Scene.Operator: ...

    @property
    def callbacks(self) -> _CallBacks: ...

    @property
    def env(self) -> object: ...

    @property
    def _virtual(self) -> Scene._Virtual: ...

    @property
    def _hierarchy(self) -> _Hierarchy: ...

    def shutdown(self) -> None: ...
