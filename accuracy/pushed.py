#!/usr/bin/env python3
"""Renders the beginning of stories once as they are and once with the camera pushed or turned, for velmor_sight.

accuracy/pushed.py SIMULATOR FOLDER STORY.json...

Prints the arguments for velmor_sight: NAME=AS_IT_WAS:AS_IT_IS for each.
"""

import json
import math
import pathlib
import re
import subprocess
import sys

SECONDS = 20
PUSH_M = 0.05


def turned(camera, pan, tilt):
    """The camera's description when it looks so many degrees to the right and upwards."""
    x, y, z = (b - a for a, b in zip(camera["position"], camera["look_at"]))
    flat = math.hypot(x, y)
    heading = math.atan2(y, x) - math.radians(pan)
    rise = math.atan2(z, flat) + math.radians(tilt)
    length = math.hypot(flat, z)
    direction = (
        length * math.cos(rise) * math.cos(heading),
        length * math.cos(rise) * math.sin(heading),
        length * math.sin(rise),
    )
    return {**camera, "look_at": [a + d for a, d in zip(camera["position"], direction)]}


def pushed(camera, metres):
    """The camera's description when it hangs so much farther along the room's axes and looks the same way."""
    return {**camera, **{key: [a + d for a, d in zip(camera[key], metres)] for key in ("position", "look_at")}}


CHANGES = {
    "as it was": lambda camera: camera,
    "pushed 5 cm sideways": lambda camera: pushed(camera, (PUSH_M, 0, 0)),
    "pushed 5 cm down": lambda camera: pushed(camera, (0, 0, -PUSH_M)),
    "turned 1 deg": lambda camera: turned(camera, 1, 0),
    "turned 3 deg": lambda camera: turned(camera, -2.5, 1.7),
    "turned 10 deg": lambda camera: turned(camera, 7, -7),
}


def render(simulator, folder, story):
    script = json.loads(re.sub(r"^\s*//.*$", "", story.read_text(), flags=re.MULTILINE))
    script["seconds"] = SECONDS
    script["people"] = [one for one in script["people"] if one["keys"][0]["at"] < SECONDS]
    videos = {}
    for name, change in CHANGES.items():
        variant = folder / f"{story.stem}_{name.replace(' ', '_')}.json"
        variant.write_text(json.dumps({**script, "camera": change(script["camera"])}))
        video = variant.with_suffix(".mp4")
        videos[name] = video
        if not video.exists():
            done = subprocess.run([simulator, "record", variant, folder], capture_output=True, text=True, check=False)
            if done.returncode != 0:
                print(f"{variant}: {done.stderr.strip()}", file=sys.stderr)
                del videos[name]
    before = videos.pop("as it was", None)
    return [f"{name}={before}:{video}" for name, video in videos.items()] if before else []


def main():
    simulator, folder, stories = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3:]
    folder.mkdir(parents=True, exist_ok=True)
    for story in stories:
        for pair in render(simulator, folder, pathlib.Path(story)):
            print(pair, flush=True)


if __name__ == "__main__":
    main()
