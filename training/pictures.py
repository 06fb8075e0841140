"""Rendered pictures and their labels, as the simulator writes them, turned and varied for training."""
import pathlib
import queue
import threading

import numpy as np
import torch

PEOPLE, KEYPOINTS = 3, 17
# The keypoint that takes a keypoint's place in a mirrored picture.
MIRROR = np.array([0, 2, 1, 4, 3, 6, 5, 8, 7, 10, 9, 12, 11, 14, 13, 16, 15])


class Pictures:
    """Folders written by `velmor_simulator dataset`: images.bin and labels.bin, square windows of `size` pixels."""

    def __init__(self, folders, size=320):
        self.images, self.labels, self.index = [], [], []
        for number, folder in enumerate(map(pathlib.Path, folders)):
            images = np.memmap(folder / "images.bin", np.uint8, "r")
            labels = np.memmap(folder / "labels.bin", np.float32, "r")
            count = min(len(images) // (size * size * 3), len(labels) // (PEOPLE * KEYPOINTS * 3))
            self.images.append(images[:count * size * size * 3].reshape(count, size, size, 3))
            self.labels.append(np.array(labels[:count * PEOPLE * KEYPOINTS * 3]).reshape(count, PEOPLE, KEYPOINTS, 3))
            self.index += [(number, i) for i in range(count)]
        self.size = size

    def __len__(self):
        return len(self.index)

    def get(self, i):
        folder, row = self.index[i]
        return self.images[folder][row], self.labels[folder][row]


def body_angle(person):
    """Degrees between a body's axis (ankles to shoulders) and upright, in the picture."""
    way = (person[5, :2] + person[6, :2]) / 2 - (person[15, :2] + person[16, :2]) / 2
    return float(np.degrees(np.arctan2(way[0], -way[1])))


def turn(image, people, quarters):
    """Turns counter-clockwise by quarter turns; half a turn also exchanges red and blue, as the camera path does."""
    size = image.shape[0]
    image = np.rot90(image, quarters)
    people = people.copy()
    for _ in range(quarters % 4):
        x = people[..., 0].copy()
        people[..., 0] = people[..., 1]
        people[..., 1] = size - x
    if quarters % 4 == 2:
        image = image[..., ::-1]
    return image, people


def mirror(image, people):
    people = people[:, MIRROR].copy()
    people[..., 0] = image.shape[1] - people[..., 0]
    return image[:, ::-1], people


def choose_quarters(people, rng):
    """A turn in which somebody is upright or across, seldom any other."""
    present = [p for p in people if p[0, 2] >= 0]
    if not present:
        return int(rng.integers(4))
    angle = body_angle(present[rng.integers(len(present))])
    weights = []
    for quarters in range(4):
        tilt = abs((angle - 90 * quarters + 180) % 360 - 180)
        weights.append(1.0 if tilt < 60 else 0.6 if tilt < 105 else 0.15)
    weights = np.array(weights)
    return int(rng.choice(4, p=weights / weights.sum()))


def vary(pictures, rng, noise):
    """Exposure, tint and sensor noise. Takes uint8 [n,h,w,3], gives float32 [n,3,h,w] in 0..1, channels last."""
    n, side = pictures.shape[:2]
    gain = rng.uniform(0.75, 1.3, (n, 1)) * rng.uniform(0.94, 1.06, (n, 3)) / 255
    offset = rng.uniform(-0.06, 0.06, (n, 1)) * np.ones((n, 3))
    varied = torch.from_numpy(pictures).float()
    varied.mul_(torch.from_numpy(gain).float()[:, None, None]).add_(torch.from_numpy(offset).float()[:, None, None])
    for picture in varied:
        y, x = rng.integers(0, noise.shape[0] - side, 2)
        picture.add_(noise[y:y + side, x:x + side], alpha=float(rng.uniform(0, 0.03)))
    return varied.clamp_(0, 1).permute(0, 3, 1, 2)


class Batches:
    """Endless training batches, prepared by a thread: pictures [n,3,side,side] and people [n,3,17,3]."""

    def __init__(self, pictures, batch, side, seed, workers=1):
        self.pictures, self.batch, self.side = pictures, batch, side
        self.noise = torch.randn(600, 600, 3, generator=torch.Generator().manual_seed(0))
        self.queue = queue.Queue(4)
        for worker in range(workers):
            threading.Thread(target=self._work, args=(seed + worker,), daemon=True).start()

    def _work(self, seed):
        rng = np.random.default_rng(seed)
        while True:
            self.queue.put(self._batch(rng))

    def _batch(self, rng):
        pictures = np.empty((self.batch, self.side, self.side, 3), np.uint8)
        people = np.empty((self.batch, PEOPLE, KEYPOINTS, 3), np.float32)
        for n, i in enumerate(rng.integers(0, len(self.pictures), self.batch)):
            image, labels = self.pictures.get(i)
            y, x = rng.integers(0, self.pictures.size - self.side + 1, 2)
            image = image[y:y + self.side, x:x + self.side]
            labels = labels - np.array([x, y, 0], np.float32)
            if rng.random() < 0.5:
                image, labels = mirror(image, labels)
            image, labels = turn(image, labels, choose_quarters(labels, rng))
            pictures[n] = image
            people[n] = labels
        return vary(pictures, rng, self.noise), torch.from_numpy(people)

    def next(self):
        return self.queue.get()
