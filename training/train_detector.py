"""Trains the person detector on squares cut as the validator cuts them.

    train_detector.py --data DIR --test DIR --out DIR --minutes 10

The validator asks about people found upside down: it turns the square by half a turn and exchanges red and blue. A
person who stands on the head after that turn is none.
"""
import argparse
import math
import pathlib
import time

import numpy as np
import torch
import torch.nn.functional as F

from detector_network import CENTRES_X, CENTRES_Y, SIDE, DetectorNetwork
from pictures import Pictures, body_angle, mirror, turn, vary

NEAR, FAR = 65.0, 115.0  # pixels from a cell's centre: the person's cell; not a cell of that person
UPRIGHT, ACROSS = 70.0, 110.0
ARMS = (7, 8, 9, 10)


def targets(people):
    """Wanted score, weight and box of the 20 cells."""
    y, x = np.meshgrid(CENTRES_Y, CENTRES_X, indexing="ij")
    score, weight, box = np.zeros(y.shape), np.ones(y.shape), np.zeros((4,) + y.shape)
    for person in people:
        if person[0, 2] < 0:
            continue
        middle = person[[5, 6, 11, 12], :2].mean(0)
        inside = ((person[:, :2] > 0) & (person[:, :2] < SIDE)).all(1) & (person[:, 2] == 2)
        distance = np.hypot(x - middle[0], y - middle[1])
        angle = abs(body_angle(person))
        if angle > ACROSS:
            continue
        if angle > UPRIGHT or inside.sum() < 6:
            weight[distance < FAR] = 0
            continue
        weight[(distance >= NEAR) & (distance < FAR) & (score == 0)] = 0
        mine = distance < NEAR
        score[mine], weight[mine] = 1, 1
        body = np.delete(person[:, :2], ARMS, 0)
        low, high = body.min(0) / SIDE, body.max(0) / SIDE
        box[:, mine] = np.array([low[1], low[0], high[1], high[0]])[:, None]
    return score, weight, box


def sample(pictures, i, rng):
    image, people = pictures.get(i)
    if rng.random() < 0.5:
        image, people = mirror(image, people)
    present = [p for p in people if p[0, 2] >= 0]
    quarters = int(rng.choice(4, p=[0.15, 0.1, 0.65, 0.1]))
    if present and rng.random() < 0.6:
        quarters = round(body_angle(present[rng.integers(len(present))]) / 90) % 4
    image, people = turn(image, people, quarters)
    if quarters != 2 and rng.random() < 0.8:
        image = image[..., ::-1]
    return image, people


def batch(pictures, size, rng, noise):
    images = np.empty((size, SIDE, SIDE, 3), np.uint8)
    wanted = []
    for n, i in enumerate(rng.integers(0, len(pictures), size)):
        images[n], people = sample(pictures, i, rng)
        wanted.append(targets(people))
    score, weight, box = (torch.from_numpy(np.stack(v)).float() for v in zip(*wanted))
    return vary(images, rng, noise), score, weight, box


def loss_of(output, score, weight, box):
    confidence = (F.binary_cross_entropy_with_logits(output[:, 0], score, reduction="none") * weight).mean()
    place = ((output[:, 1:] - box).abs().sum(1) * score).sum() / (score.sum() + 1)
    return 10 * confidence + place


@torch.no_grad()
def evaluate(network, pictures, noise):
    """Share of squares with an upright person that are confirmed at 0.38, and of squares without one that are."""
    network.eval()
    rng = np.random.default_rng(5)
    found = people = wrong = empty = 0
    for _ in range(20):
        images, score, weight, _ = batch(pictures, 32, rng, noise)
        best = torch.sigmoid(network(images)[:, 0]).flatten(1).amax(1) > 0.38
        upright = score.flatten(1).amax(1) > 0
        nobody = ~upright & (weight.flatten(1).amin(1) > 0)
        found, people = found + (best & upright).sum().item(), people + upright.sum().item()
        wrong, empty = wrong + (best & nobody).sum().item(), empty + nobody.sum().item()
    network.train()
    return found / max(people, 1), wrong / max(empty, 1), people, empty


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--data", nargs="+", required=True)
    parser.add_argument("--test", required=True)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--rate", type=float, default=3e-3)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--threads", type=int, default=2)
    arguments = parser.parse_args()
    arguments.out.mkdir(parents=True, exist_ok=True)
    torch.manual_seed(arguments.seed)
    torch.set_num_threads(arguments.threads)
    rng = np.random.default_rng(arguments.seed)
    noise = torch.randn(600, 600, 3, generator=torch.Generator().manual_seed(0))
    pictures, test = Pictures(arguments.data, SIDE), Pictures([arguments.test], SIDE)
    network = DetectorNetwork().to(memory_format=torch.channels_last).train()
    optimizer = torch.optim.AdamW(network.parameters(), arguments.rate, weight_decay=0.01)
    started, step, progress = time.time(), 0, 0.0
    while progress < 1:
        progress = min((time.time() - started) / (60 * arguments.minutes), 1.0)
        for group in optimizer.param_groups:
            group["lr"] = arguments.rate * (0.5 + 0.5 * math.cos(math.pi * progress)) + 1e-6
        images, score, weight, box = batch(pictures, 64, rng, noise)
        with torch.autocast("cpu", dtype=torch.bfloat16):
            output = network(images)
        loss = loss_of(output.float(), score, weight, box)
        optimizer.zero_grad(set_to_none=True)
        loss.backward()
        optimizer.step()
        step += 1
        if step % 100 == 0 or progress >= 1:
            print(f"step {step}  loss {loss.item():.3f}", flush=True)
    torch.save({"network": network.state_dict(), "step": step}, arguments.out / "checkpoint.pt")
    found, wrong, people, empty = evaluate(network, test, noise)
    print(f"held-out squares: {found:.3f} of {people} people confirmed, {wrong:.3f} of {empty} others", flush=True)


if __name__ == "__main__":
    main()
