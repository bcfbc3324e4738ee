"""Every Python example of the README runs as written."""
import importlib.util
import re
from pathlib import Path

import pytest

README = Path(__file__).resolve().parents[1] / "README.md"
EXAMPLES = re.findall(r"```python\n(.*?)```", README.read_text(), re.S)


@pytest.mark.parametrize("code", EXAMPLES, ids=[f"example{k}" for k in range(len(EXAMPLES))])
def test_readme_example_runs(code, tmp_path, monkeypatch):
    for module in re.findall(r"^(?:import|from) (\w+)", code, re.M):
        if importlib.util.find_spec(module) is None:
            pytest.skip(f"the example needs {module}, an optional extra that is not installed")
    monkeypatch.chdir(tmp_path)
    exec(compile(code, str(README), "exec"), {})
