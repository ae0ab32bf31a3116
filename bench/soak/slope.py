"""A straight line through samples: how fast something grows."""


def slope(points):
    """Least-squares slope of (x, y) pairs; 0 for fewer than two or with no spread in x."""
    count = len(points)
    if count < 2:
        return 0.0
    mean_x = sum(x for x, _ in points) / count
    mean_y = sum(y for _, y in points) / count
    spread = sum((x - mean_x) ** 2 for x, _ in points)
    if spread == 0:
        return 0.0
    return sum((x - mean_x) * (y - mean_y) for x, y in points) / spread
