"""Trains the pose network on rendered pictures. Resumes from its last checkpoint.

    train_pose.py --data DIR [DIR ...] --test DIR --out DIR --minutes 90
"""
import argparse
import copy
import math
import pathlib
import time

import torch
import torch.nn.functional as F

from pictures import Batches, Pictures
from pose_network import EDGES, HEAT, MID, SHORT, STRIDE, PoseNetwork

SIDE = 288
HEAT_SIGMA = 13.0   # pixels
HIDDEN_RADIUS = 30.0
SHORT_RADIUS = 60.0
MID_RADIUS = 30.0
UPRIGHT, UPSIDE_DOWN = 105.0, 130.0  # degrees: learned as a person; ignored between the two; learned as none beyond
SHORT_RANGE = (-104.0, 83.0)
MID_RANGE = (-177.0, 190.0)


def tilt(people):
    """Degrees from upright, [batch, person]."""
    way = (people[:, :, 5, :2] + people[:, :, 6, :2] - people[:, :, 15, :2] - people[:, :, 16, :2])
    return torch.rad2deg(torch.atan2(way[..., 0], -way[..., 1])).abs()


def cells(side):
    steps = torch.arange(side // STRIDE + 1) * float(STRIDE)
    y, x = torch.meshgrid(steps, steps, indexing="ij")
    return x, y


def nearest(x, y, people, valid):
    """Distance of every cell to the nearest valid keypoint of each type, and whose it is: both [batch, 17, h, w]."""
    dx = people[..., 0, None, None] - x
    dy = people[..., 1, None, None] - y
    distance = torch.sqrt(dx * dx + dy * dy).masked_fill(~valid[..., None, None], 1e6)
    return distance.min(dim=1)


def pick(values, owner):
    """values [batch, person, k], owner [batch, k, h, w] -> values of the owners, [batch, k, h, w]."""
    b, _, k = values.shape
    h, w = owner.shape[2:]
    return values.transpose(1, 2)[:, :, :, None, None].expand(b, k, values.shape[1], h, w).gather(
        2, owner[:, :, None]).squeeze(2)


def losses(output, people):
    x, y = cells(SIDE)
    state = people[..., 2]
    angle = tilt(people)[..., None]
    present = (state >= 1) & (angle < UPSIDE_DOWN)
    learned = present & (angle < UPRIGHT)
    visible = learned & (state == 2)

    shown, _ = nearest(x, y, people, visible)
    target = torch.exp(-shown ** 2 / (2 * HEAT_SIGMA ** 2))
    masked, _ = nearest(x, y, people, present & ~visible)
    weight = torch.where((masked < HIDDEN_RADIUS) & (target < 0.3), 0.0, 1.0) * (1 + 5 * target)
    heat = (F.binary_cross_entropy_with_logits(output[:, HEAT], target, reduction="none") * weight).mean()

    near, owner = nearest(x, y, people, learned)
    inside = near < SHORT_RADIUS
    wanted = torch.cat([pick(people[..., 1], owner) - y, pick(people[..., 0], owner) - x], 1)
    wanted = wanted.clamp(*SHORT_RANGE) / STRIDE
    error = (output[:, SHORT] - wanted).abs() * torch.cat([inside, inside], 1)
    short = error.sum() / (2 * inside.sum() + 1)

    parts = [EDGES, [(b, a) for a, b in EDGES]]
    mid, count = 0.0, 1.0
    channels = output[:, MID]
    for direction, edges in enumerate(parts):
        source = torch.tensor([a for a, _ in edges])
        goal = torch.tensor([b for _, b in edges])
        close = (near[:, source] < MID_RADIUS)
        owners = owner[:, source]
        known = pick((people[:, :, goal, 2] >= 1).float(), owners) > 0
        active = close & known
        for axis, coordinate in ((1, y), (0, x)):
            wanted = (pick(people[:, :, goal, axis], owners) - coordinate).clamp(*MID_RANGE) / STRIDE
            first = 32 * direction + (0 if axis == 1 else 16)
            mid = mid + ((channels[:, first:first + 16] - wanted).abs() * active).sum()
            count = count + active.sum()
    return heat, short, mid / count


@torch.no_grad()
def evaluate(network, pictures, limit=600):
    """PCK at a tenth of the body's box and mean heat at visible joints, upright bodies, windows with one person."""
    network.eval()
    x, y = cells(SIDE)
    hits = joints = 0
    score = 0.0
    for i in range(min(limit, len(pictures))):
        image, labels = pictures.get(i)
        people = torch.from_numpy(labels[None] - [16, 16, 0]).float()
        picture = torch.from_numpy(image[16:16 + SIDE, 16:16 + SIDE].copy()).permute(2, 0, 1)[None].float() / 255
        person = people[0, 0]
        seen = (person[:, 2] == 2) & (person[:, :2] > 8).all(1) & (person[:, :2] < SIDE - 8).all(1)
        if people[0, 1, 0, 2] >= 0 or seen.sum() < 8 or tilt(people)[0, 0] > 60:
            continue
        output = network(picture.to(memory_format=torch.channels_last)).float()[0]
        span = (person[:, :2].amax(0) - person[:, :2].amin(0)).max()
        for k in torch.nonzero(seen).flatten().tolist():
            best = output[k].argmax()
            row, column = divmod(best.item(), output.shape[2])
            found = torch.stack([x[row, column] + STRIDE * output[34 + k, row, column],
                                 y[row, column] + STRIDE * output[17 + k, row, column]])
            hits += bool((found - person[k, :2]).norm() < 0.1 * span)
            score += torch.sigmoid(output[k, row, column]).item()
            joints += 1
    return hits / max(joints, 1), score / max(joints, 1)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--data", nargs="+", required=True)
    parser.add_argument("--test", required=True)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--minutes", type=float, default=90)
    parser.add_argument("--batch", type=int, default=64)
    parser.add_argument("--rate", type=float, default=3e-3)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--threads", type=int, default=2)
    arguments = parser.parse_args()
    arguments.out.mkdir(parents=True, exist_ok=True)
    torch.manual_seed(arguments.seed)
    torch.set_num_threads(arguments.threads)
    network = PoseNetwork().to(memory_format=torch.channels_last)
    average = copy.deepcopy(network)
    optimizer = torch.optim.AdamW(network.parameters(), arguments.rate, weight_decay=0.01)
    checkpoint = arguments.out / "checkpoint.pt"
    spent, step = 0.0, 0
    if checkpoint.exists():
        saved = torch.load(checkpoint)
        network.load_state_dict(saved["network"])
        average.load_state_dict(saved["average"])
        optimizer.load_state_dict(saved["optimizer"])
        spent, step = saved["spent"], saved["step"]
    batches = Batches(Pictures(arguments.data), arguments.batch, SIDE, arguments.seed + step)
    test = Pictures([arguments.test])
    budget = arguments.minutes * 60
    started, marks = time.time() - spent, [0.0, 0.0, 0.0]
    network.train()
    while True:
        spent = time.time() - started
        progress = min(spent / budget, 1.0)
        rate = arguments.rate * min(1.0, (step + 1) / 200) * (0.5 + 0.5 * math.cos(math.pi * progress)) + 1e-6
        for group in optimizer.param_groups:
            group["lr"] = rate
        pictures, people = batches.next()
        with torch.autocast("cpu", dtype=torch.bfloat16):
            output = network(pictures.contiguous(memory_format=torch.channels_last))
        heat, short, mid = losses(output.float(), people)
        loss = 40 * heat + short + 0.6 * mid
        optimizer.zero_grad(set_to_none=True)
        loss.backward()
        torch.nn.utils.clip_grad_norm_(network.parameters(), 5.0)
        optimizer.step()
        step += 1
        keep = min(0.998, step / (step + 20))
        with torch.no_grad():
            for slow, fast in zip(average.state_dict().values(), network.state_dict().values()):
                if slow.dtype.is_floating_point:
                    slow.lerp_(fast, 1 - keep)
        marks = [m * 0.98 + 0.02 * v.item() for m, v in zip(marks, (heat, short, mid))]
        done = progress >= 1.0
        if step % 500 == 0 or done:
            torch.save({"network": network.state_dict(), "average": average.state_dict(),
                        "optimizer": optimizer.state_dict(), "spent": spent, "step": step}, checkpoint)
            pck, score = evaluate(average, test)
            print(f"{spent / 60:6.1f} min  step {step}  rate {rate:.5f}  heat {marks[0]:.4f}  short {marks[1]:.3f}  "
                  f"mid {marks[2]:.3f}  test PCK {pck:.3f} score {score:.3f}", flush=True)
        elif step % 50 == 0:
            print(f"{spent / 60:6.1f} min  step {step}  heat {marks[0]:.4f}  short {marks[1]:.3f}  mid {marks[2]:.3f}",
                  flush=True)
        if done:
            break


if __name__ == "__main__":
    main()
