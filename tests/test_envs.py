import subprocess
import sys

import numpy as np
import pytest

gym = pytest.importorskip("gymnasium")
from gymnasium.utils.env_checker import check_env, data_equivalence  # noqa: E402
from gymnasium.vector import AutoresetMode  # noqa: E402

import torvane as tv  # noqa: E402
import torvane.envs  # noqa: E402
from torvane.envs import PuzzleEnv, PuzzleVectorEnv  # noqa: E402

CUBE2 = "torvane.envs:torvane/Cube2x2x2-v0"


def vector_pair(mode, obs="colors", num_envs=4, **kwargs):
    """The vector env and its oracle, a SyncVectorEnv of single envs, made alike."""
    ours = gym.make_vec(CUBE2, num_envs, obs=obs, autoreset_mode=mode, **kwargs)
    oracle = gym.make_vec(CUBE2, num_envs, vectorization_mode="sync", obs=obs,
                          vector_kwargs={"autoreset_mode": mode}, **kwargs)
    return ours, oracle


def assert_same(ours, oracle):
    assert data_equivalence(ours, oracle, exact=True), (ours, oracle)


# One move from solved and five steps a episode: random actions solve some copies and truncate
# others, so both endings and every restart path are exercised.
@pytest.mark.parametrize("mode", list(AutoresetMode))
@pytest.mark.parametrize("obs", ["colors", "one_hot", "ids", "pixels"])
def test_vector_env_matches_sync_vector_env_of_single_envs(mode, obs):
    ours, oracle = vector_pair(mode, obs, scramble=1, max_episode_steps=5, width=16, height=16)
    assert ours.single_observation_space == oracle.single_observation_space
    assert ours.observation_space == oracle.observation_space
    assert ours.action_space == oracle.action_space
    assert_same(ours.reset(seed=11), oracle.reset(seed=11))
    actions = np.random.default_rng(5).integers(0, ours.single_action_space.n, (300, 4))
    endings = 0
    for step in actions:
        answer = ours.step(step)
        assert_same(answer, oracle.step(step))
        assert ours.observation_space.contains(answer[0])
        ended = answer[2] | answer[3]
        endings += int(ended.sum())
        if mode == AutoresetMode.DISABLED and ended.any():
            assert_same(ours.reset(options={"reset_mask": ended}),
                        oracle.reset(options={"reset_mask": ended.copy()}))
    assert endings > 20
    seeds = [3, None, 2**64 - 1, 0]
    assert_same(ours.reset(seed=seeds), oracle.reset(seed=seeds))
    assert_same(ours.step(actions[0]), oracle.step(actions[0]))


@pytest.mark.parametrize("obs", ["colors", "one_hot", "ids", "pixels"])
def test_observations_are_fresh_zero_copy_views_in_their_space(obs):
    envs = PuzzleVectorEnv("2x2x2 Cube", 3, obs=obs, scramble=4, width=16, height=12)
    first, _ = envs.reset(seed=1)
    second, *_ = envs.step([0, 1, 2])
    third, *_ = envs.step(np.array([0, 1, 2]))
    for observation in (first, second, third):
        assert envs.observation_space.contains(observation)
        assert isinstance(observation.base, tv.Array) or isinstance(observation.base.base, tv.Array)
    assert first is not second and not np.shares_memory(second, third)
    single, _ = PuzzleEnv("2x2x2 Cube", obs=obs, scramble=4, width=16, height=12).reset(seed=1)
    assert single.dtype == first.dtype and np.array_equal(single, first[0])


@pytest.mark.parametrize("env_id", sorted(torvane.envs.REGISTERED))
def test_registered_environments_pass_the_checker(env_id):
    env = gym.make(f"torvane.envs:{env_id}", scramble=3)
    check_env(env.unwrapped)
    steps = gym.registry[env_id].max_episode_steps
    assert steps == torvane.envs.REGISTERED[env_id][1] and env.get_wrapper_attr("_max_episode_steps") == steps
    envs = gym.make_vec(f"torvane.envs:{env_id}", 2)
    assert isinstance(envs, PuzzleVectorEnv) and envs.max_episode_steps == steps
    assert envs.metadata["autoreset_mode"] == AutoresetMode.NEXT_STEP


def test_jumbling_puzzle_offers_pixels_only():
    with pytest.raises(ValueError, match="use obs='pixels'"):
        PuzzleEnv("24-Cube / Little Chop", obs="colors")
    env = PuzzleEnv("24-Cube / Little Chop", obs="pixels", scramble=3, width=24, height=24)
    check_env(env, skip_render_check=True)
    env.reset(seed=4)
    for action in np.random.default_rng(0).integers(0, env.action_space.n, 20):
        observation, reward, terminated, _, info = env.step(action)
        assert env.observation_space.contains(observation) and isinstance(info["applied"], bool)


def test_jumbling_batch_passes_the_native_error_through():
    envs = PuzzleVectorEnv("24-Cube / Little Chop", 4, scramble=0)
    envs.reset(seed=1)
    with pytest.raises(tv.PuzzleError, match="does not return to its own lattice"):
        for k in range(50):
            envs.step(np.random.default_rng(k).integers(0, envs.single_action_space.n, 4))


def test_scramble_range_draws_depths_from_np_random():
    envs = PuzzleVectorEnv("2x2x2 Cube", 64, scramble=(2, 5))
    envs.reset(seed=3)
    counts = envs.batch.move_counts
    assert set(counts) == {2, 3, 4, 5}
    envs.reset(seed=3)
    assert envs.batch.move_counts == counts


def test_gymnasium_wrappers_take_the_vector_env():
    envs = PuzzleVectorEnv("2x2x2 Cube", 8, scramble=1, max_episode_steps=4)
    envs = gym.wrappers.vector.RecordEpisodeStatistics(envs)
    envs = gym.wrappers.vector.NormalizeReward(envs)
    envs = gym.wrappers.vector.DtypeObservation(envs, np.int16)
    observations, _ = envs.reset(seed=0)
    episodes = 0
    for _ in range(40):
        observations, rewards, terminated, truncated, infos = envs.step(envs.action_space.sample())
        episodes += int(infos.get("_episode", np.zeros(8, bool)).sum())
    assert observations.dtype == np.int16 and rewards.dtype == np.float64 and episodes > 8


@pytest.mark.parametrize(("call", "error", "message"), [
    (lambda e: e.step([0, 1, 2]), ValueError, "got 3 actions for 4 puzzles"),
    (lambda e: e.step([0, 1, 2, 99]), ValueError, r"action 99 out of range \(have 12\)"),
    (lambda e: e.step(np.zeros(4)), TypeError, "expected an array of whole numbers, not one of <f8"),
    (lambda e: e.reset(seed=2**64), ValueError, "from 0 to 2\\*\\*64 - 1"),
    (lambda e: e.reset(seed=-1), gym.error.Error, "Seed must be greater or equal to zero"),
    (lambda e: e.reset(seed=[1, 2]), ValueError, "must match num_envs=4"),
    (lambda e: e.reset(options={"reset_mask": [True] * 4}), TypeError, "must be a numpy array"),
    (lambda e: e.reset(options={"reset_mask": np.ones(3, bool)}), ValueError, "shape"),
    (lambda e: e.reset(options={"reset_mask": np.ones(4, int)}), TypeError, "dtype"),
    (lambda e: e.reset(options={"reset_mask": np.zeros(4, bool)}), ValueError, "at least one True"),
])
def test_a_refused_call_changes_nothing(call, error, message):
    envs = PuzzleVectorEnv("Rubik's Cube (3x3x3)", 4, scramble=3)
    before, _ = envs.reset(seed=9)
    with pytest.raises(error, match=message):
        call(envs)
    assert np.array_equal(envs.batch.observations(), before)
    assert envs.batch.move_counts == [3] * 4


def test_bad_arguments_name_the_choices():
    with pytest.raises(ValueError, match="'colors', 'one_hot', 'ids' or 'pixels', not 'rgb'"):
        PuzzleVectorEnv("2x2x2 Cube", 2, obs="rgb")
    with pytest.raises(ValueError, match="a batch needs at least one puzzle"):
        PuzzleVectorEnv("2x2x2 Cube", 0)
    with pytest.raises(ValueError, match="low <= high"):
        PuzzleEnv("2x2x2 Cube", scramble=(5, 2))


def test_gymnasium_stays_optional():
    script = ("import sys, torvane; assert 'gymnasium' not in sys.modules; sys.modules['gymnasium'] = None\n"
              "try:\n    import torvane.envs\nexcept ImportError as e:\n    print(e)")
    out = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    assert "pip install torvane[gym]" in out.stdout
