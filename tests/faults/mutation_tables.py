"""All tables of mutating operations, by the name of the case."""

from __future__ import annotations

from faults.mutations import MUTATIONS
from faults.one_shots import ONE_SHOTS
from faults.transfers import TRANSFERS
from faults.tree_mutations import TREE_MUTATIONS

# The operations of a pinned root.
TABLES = {**MUTATIONS, **TREE_MUTATIONS}
# The functions around them, which pin their roots themselves.
FUNCTIONS = {
    **{f"{name}_once": table for name, table in ONE_SHOTS.items()},
    **{f"{name}_between_roots": table for name, table in TRANSFERS.items()},
}
