"""Delivery survives a host that is killed at random moments: a host records a burst of
events while the collector answers slowly, is killed with SIGKILL ten times and started again,
and a last run delivers what is left. Every event whose folder reached Queued must reach the
collector at least once; events still in Processing when the host died are dropped at the next
start, by design. Runs in the background (see delivery_support.py) beside the other slow
delivery scenarios."""

import collections
import json
import random
import time

import pytest

from delivery_support import (EVENT_PATH, Host, background_scenario, event_folders,
                              events_folder, served_requests, service_arguments, sdk_environment,
                              start_collector)

SEED = 20261121
TOTAL = 200
KILLS = 10
PER_ROUND = 20
ANSWER_DELAY = 0.2
# Long enough for the first retry pass to date the leftovers and a later one to send them.
FINAL_RUN = 330


@background_scenario("durability")
def durability(workdir, cleanup):
    rng = random.Random(SEED)
    running = cleanup.collector(start_collector(
        workdir / "collector", rules=[{"path": EVENT_PATH, "delay": ANSWER_DELAY,
                                       "times": 100000}]))
    env = sdk_environment(workdir / "sdk")
    reached = set()
    dropped = set()
    rounds = []
    for _ in range(KILLS):
        host = cleanup.host(Host(env, "record-events", min(PER_ROUND, TOTAL - len(reached)),
                                 *service_arguments(running), "--run", 60))
        recording = host.wait_for_line("recording", 30)
        assert recording, host.stderr
        # What the previous kill left in Processing is gone once this run has started.
        leftovers = dropped & event_folders(env, "Processing")
        # Half the kills fall while the burst of events is still being gathered, half while
        # the queued events wait for the slow answers.
        delay = rng.uniform(0, 0.03) if rng.random() < 0.5 else rng.uniform(0.03, 2.5)
        time.sleep(max(0.0, recording[0] + delay - time.time()))
        host.kill()
        time.sleep(0.2)  # the reader thread takes the last lines from the pipe
        queued_on_disk = event_folders(env, "Queued")
        processing = event_folders(env, "Processing")
        reached |= set(host.queued()) | queued_on_disk
        dropped |= processing
        rounds.append({"killed_after": round(delay, 3), "reported_queued": len(host.queued()),
                       "queued_on_disk": len(queued_on_disk), "in_processing": len(processing),
                       # A folder in both places is a move from Processing cut short.
                       "in_both": sorted(processing & queued_on_disk),
                       "earlier_drops_still_in_processing": sorted(leftovers)})

    final = cleanup.host(Host(env, "record-events", TOTAL - len(reached),
                              *service_arguments(running), "--run", FINAL_RUN,
                              "--until-delivered"))
    exit_status = final.finish(FINAL_RUN + 60)
    reached |= set(final.queued())
    arrivals = collections.Counter(entry["uuid"] for entry in running.submissions())
    missing = sorted(reached - set(arrivals))
    queued_folder = events_folder(env, "Queued")
    summary = {
        "seed": SEED, "kills": len(rounds), "rounds": rounds, "reached_queued": len(reached),
        "arrived": len(arrivals), "missing": missing,
        # What is left on disk of each missing event, and whether a kill found it in Processing.
        "missing_details": {uuid: {"was_in_processing": uuid in dropped, "files_left": sorted(
            str(path.relative_to(queued_folder / uuid))
            for path in (queued_folder / uuid).rglob("*"))} for uuid in missing},
        "answers": collections.Counter(str(status) for _, status in served_requests(running)),
        "arrived_twice_or_more": sum(1 for count in arrivals.values() if count >= 2),
        "in_processing_when_killed": len(dropped),
        "dropped_but_arrived": sorted(dropped & set(arrivals)),
        "final_exit": exit_status, "final_left": final.left(),
        "final_reported_queued": len(final.queued()),
    }
    (workdir / "durability.json").write_text(json.dumps(summary, indent=2))
    summary["artefact"] = str(workdir / "durability.json")
    return summary


@pytest.mark.background("durability")
def test_every_queued_event_arrives_despite_ten_kills(background_scenarios):
    summary = background_scenarios.result("durability")
    print(f"durability (seed {summary['seed']}): {summary['reached_queued']} events reached "
          f"Queued, {summary['arrived']} arrived, {summary['arrived_twice_or_more']} arrived "
          f"twice or more, {summary['in_processing_when_killed']} were in Processing when "
          f"killed; answers {dict(summary['answers'])}; details in {summary['artefact']}")
    assert summary["kills"] == KILLS
    assert summary["reached_queued"] == TOTAL
    # The kills hit while submissions were waiting, or the test proves nothing.
    assert sum(entry["queued_on_disk"] for entry in summary["rounds"]) > 0
    assert summary["missing"] == [], summary["missing_details"]
    assert summary["final_exit"] == 0 and summary["final_left"] == {}
    # Half-gathered events are dropped at the next start and never sent; an event is in one
    # status folder at a time.
    assert all(not entry["earlier_drops_still_in_processing"] for entry in summary["rounds"])
    assert all(not entry["in_both"] for entry in summary["rounds"])
    assert summary["dropped_but_arrived"] == []
