# SPDX-License-Identifier: LicenseRef-qxkernel
"""What the tests share. Where SciPy is missing its tests are left out with the reason."""

import numpy as np
import pytest


@pytest.fixture
def rng():
    return np.random.default_rng(20260101)


@pytest.fixture
def scipy_sparse():
    return pytest.importorskip("scipy.sparse", reason="SciPy is not installed: Debian's conflicts with libboost1.81-dev")
