# SPDX-License-Identifier: LicenseRef-qxkernel
"""What users hand over as `progress`."""

from contextlib import contextmanager


@contextmanager
def progress_function(progress):
    """A function of (title, fraction) or None. True shows a bar by tqdm, which must be installed."""
    if progress is None or progress is False:
        yield None
    elif progress is not True:
        if not callable(progress):
            raise TypeError("progress must be True, None or a function of (title, fraction)")
        yield progress
    else:
        from tqdm.auto import tqdm
        with tqdm(total=100, unit="%", leave=False) as bar:
            def show(title, fraction):
                bar.set_description(title)
                bar.update(round(100 * fraction) - bar.n)
            yield show
