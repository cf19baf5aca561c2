"""The example host's embedded check pack.

`RockCheck` is the host's own abstract layer: check classes derive from it,
never from zerko.Check.Base directly. Checks reach the scene through the
host's API; here that is the scene the host layer hands over in `SCENE`.
"""
import zerko

SCENE = None


class RockCheck(zerko.Check.Base):
    """Base of the pack's checks."""

    @staticmethod
    def name_of(path):
        return path.rsplit("|", 1)[-1]
