import os

from hypothesis import settings

# Property tests run a fixed number of examples so that a run costs the same every time.
settings.register_profile("torvane", max_examples=int(os.environ.get("TORVANE_EXAMPLES", "300")), deadline=None)
settings.load_profile("torvane")
