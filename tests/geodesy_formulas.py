"""The formulas of CConvertLonLat once more, as plainly as they can be written.

Python's numbers are the platform's doubles and its functions the platform's, and no optimiser comes
between: the library must give the same bits. Reads lines of an operation and its arguments, prints the
results of each as hexadecimal floats.
"""

import math
import sys
from math import acos, asin, atan, atan2, cos, floor, sin, sqrt, tan

PI = 3.141592653589793


def rad(x):
    return PI * x / 180


def deg(x):
    return 180 * x / PI


def half_away(v):
    return float(floor(v + 0.5)) if v > 0 else float(math.ceil(v - 0.5))


def ripple(x):
    return (20 * sin(6 * PI * x) + 20 * sin(2 * PI * x)) * 2 / 3


def shift_of_lat(x, y):
    return (-100 + 2 * x + 3 * y + 0.2 * (y * y) + 0.1 * x * y + 0.2 * sqrt(abs(x)) + ripple(x)
            + (20 * sin(PI * y) + 40 * sin(PI * y / 3)) * 2 / 3
            + (160 * sin(PI * y / 12) + 320 * sin(PI * y / 30)) * 2 / 3)


def shift_of_lon(x, y):
    return (300 + x + 2 * y + 0.1 * (x * x) + 0.1 * x * y + 0.1 * sqrt(abs(x)) + ripple(x)
            + (20 * sin(PI * x) + 40 * sin(PI * x / 3)) * 2 / 3
            + (150 * sin(PI * x / 12) + 300 * sin(PI * x / 30)) * 2 / 3)


def Transform(lat, lon):
    d_lat, d_lon = shift_of_lat(lon - 105, lat - 35), shift_of_lon(lon - 105, lat - 35)
    phi = PI * lat / 180
    W = 1 - 0.006693421622965943 * (sin(phi) * sin(phi))
    d_lat = 180 * d_lat / (PI * 6335552.717000426 / (W * sqrt(W)))
    d_lon = 180 * d_lon / (PI * (6378245.0 / sqrt(W)) * cos(phi))
    return lat + d_lat, lon + d_lon


def Wgs84ToXY(lat, lon, width):
    width = int(width)
    a, b, e, e_prime = 6378137.0, 6356752.314245179, 0.081819190842621, 0.0820944379496957
    if width == 6:
        L0 = int(half_away((3 + lon) / 6)) * 6 - 3.0
    else:
        L0 = float(int(half_away(lon / width)) * width)
    B, l = rad(lat), rad(lon - L0)
    eta2 = (e_prime * e_prime) * (cos(B) * cos(B))
    N, t = a * a / b / sqrt(1 + eta2), tan(B)
    e2 = e * e
    e4, e6, e8 = e2 * e2, e2 * e2 * e2, (e2 * e2) * (e2 * e2)
    A = 1 + 0.75 * e2 + 0.703125 * e4 + 0.68359375 * e6 + 0.67291259765625 * e8
    B0 = 0.75 * e2 + 0.9375 * e4 + 1.025390625 * e6 + 1.07666015625 * e8
    C4 = 0.234375 * e4 + 0.41015625 * e6 + 0.538330078125 * e8
    D = 0.068359375 * e6 + 0.15380859375 * e8
    E8 = 0.00240325927734375 * e8
    M = a * (1 - e2) * (A * B - B0 / 2 * sin(2 * B) + C4 / 4 * sin(4 * B) - D / 6 * sin(6 * B) + E8 * sin(8 * B))
    t2, p2 = t * t, (l * cos(B)) * (l * cos(B))
    t4, p4, eta4 = t2 * t2, p2 * p2, eta2 * eta2
    x = M + (N * sin(B) * cos(B) * (l * l) / 2) * (
        1 + (5 - t2 + 9 * eta2 + 4 * eta4) * p2 / 12 + (61 - 58 * t2 + t4) * p4 / 360)
    y = 500000 + N * l * cos(B) * (
        1 + (1 - t2 + eta2) * p2 / 6 + (5 - 18 * t2 + t4 - 14 * eta2 - 58 * eta2 * t2) * p4 / 120)
    return x, y


def by_seconds(radians):
    total = radians * 206264.80624709636
    d = float(floor(total / 3600))
    m = float(floor((total - 3600 * d) / 60))
    s = total - 3600 * d - 60 * m
    return d + m / 60 + s / 3600


def XYToWgs84(x, y, centre):
    a, e2, e_prime2 = 6378137.0, 0.0066943799901413, 0.0067394967422764
    y -= 500000
    m0 = a * (1 - e2)
    m2 = 1.5 * e2 * m0
    m4 = 5 * e2 * m2 / 4
    m6 = 7 * e2 * m4 / 6
    m8 = 9 * e2 * m6 / 8
    a0 = m0 + m2 / 2 + 3 * m4 / 8 + 5 * m6 / 16 + 35 * m8 / 128
    a2 = m2 / 2 + m4 / 2 + 15 * m6 / 32 + 7 * m8 / 16
    a4 = m4 / 8 + 3 * m6 / 16 + 7 * m8 / 32
    a6 = m6 / 32 + m8 / 16
    a8 = m8 / 128
    Bf, previous = x / a0, 0.0
    while Bf - previous >= 1e-6:
        previous = Bf
        F = (-(a2 / 2) * sin(2 * Bf) + a4 / 4 * sin(4 * Bf) - a6 / 6 * sin(6 * Bf) + a8 / 8 * sin(8 * Bf))
        Bf = (x - F) / a0
    V = sqrt(1 - e2 * (sin(Bf) * sin(Bf)))
    N, M = a / V, a * (1 - e2) / (V * V * V)
    eta2, t = e_prime2 * (cos(Bf) * cos(Bf)), tan(Bf)
    t2 = t * t
    t4 = t2 * t2
    y2, y3 = y * y, y * y * y
    y4 = y2 * y2
    y5, y6 = y4 * y, y4 * y2
    N3 = N * N * N
    N5 = N3 * N * N
    B = (Bf - t * y2 / (2 * M * N) + (5 + 3 * t2 + eta2 - 9 * eta2 * t2) * t * y4 / (24 * M * N3)
         - (61 + 90 * t2 + 45 * t4) * t * y6 / (720 * M * N5))
    L = (y / (N * cos(Bf)) - (1 + 2 * t2 + eta2) * y3 / (6 * N3 * cos(Bf))
         + (5 + 28 * t2 + 24 * t4) * y5 / (120 * N5 * cos(Bf)) + centre)
    return by_seconds(L), by_seconds(B)


def LBH2XYZ(L, B, H):
    a, e2 = 6378137.0, 0.081819190842621 * 0.081819190842621
    L, B = rad(L), rad(B)
    N = a / sqrt(1 - e2 * (sin(B) * sin(B)))
    return (N + H) * cos(B) * cos(L), (N + H) * cos(B) * sin(L), (N * (1 - e2) + H) * sin(B)


def XYZ2LBH(X, Y, Z):
    a, e2 = 6378137.0, 0.08181919104281517 * 0.08181919104281517
    L = atan(Y / X) * 180 / PI
    if X < 0:
        L = L - 180 if L >= 0 else L + 180
    previous, N, B = 0.0, a, atan(Z / sqrt(X * X + Y * Y))
    while abs(B - previous) > 1e-8:
        previous = B
        N = a / sqrt(1 - e2 * (sin(previous) * sin(previous)))
        B = atan((Z + N * e2 * sin(previous)) / sqrt(X * X + Y * Y))
    return L, B * 180 / PI, Z / sin(B) - N * 0.9933056199770993


def TransRect(lon, lat):
    a, f = 6378137.0, 0.0033528106647474805
    b = a * (1 - f)
    e2 = (a * a - b * b) / (a * a)
    phi, lam = PI * lat / 180, PI * lon / 180
    N = a / sqrt(1 - e2 * (sin(phi) * sin(phi)))
    return N * cos(phi) * cos(lam), N * cos(phi) * sin(lam)


R = 6378.137


def GetDistanceA(lon1, lat1, lon2, lat2):
    return (R * 1000 * acos(sin(rad(lat1)) * sin(rad(lat2))
                            + cos(rad(lat1)) * cos(rad(lat2)) * cos(rad(lon1) - rad(lon2))),)


def GetDistanceB(lon1, lat1, lon2, lat2):
    u, v = sin((rad(lat1) - rad(lat2)) / 2), sin((rad(lon1) - rad(lon2)) / 2)
    return (R * 1000 * (2 * asin(sqrt(u * u + cos(rad(lat1)) * cos(rad(lat2)) * (v * v)))),)


def GetDistanceC(lon1, lat1, lon2, lat2):
    def direction(lon, lat):
        theta, lam = rad(lat), rad(lon)
        if theta < 0:
            theta = abs(theta) + PI / 2
        if theta > 0:
            theta = PI / 2 - abs(theta)
        if lam < 0:
            lam = 2 * PI - abs(lam)
        return sin(theta) * cos(lam), sin(theta) * sin(lam), cos(theta)
    (x1, y1, z1), (x2, y2, z2) = direction(lon1, lat1), direction(lon2, lat2)
    chord2 = (x1 - x2) * (x1 - x2) + (y1 - y2) * (y1 - y2) + (z1 - z2) * (z1 - z2)
    return (R * 1000 * acos((2 * (R * R) - R * R * chord2) / (2 * (R * R))),)


def bearing(lon1, lat1, lon2, lat2):
    Ec = 6356725 + 21412 * (90 - lat1) / 90
    Ed = Ec * cos(rad(lat1))
    dx, dy = (rad(lon2) - rad(lon1)) * Ed, (rad(lat2) - rad(lat1)) * Ec
    a = deg(atan(abs(dx / dy))) if dy != 0 else 0.0
    d_lon, d_lat = lon2 - lon1, lat2 - lat1
    if d_lon > 0 and d_lat <= 0:
        return 180 - a
    if d_lon <= 0 and d_lat < 0:
        return 180 + a
    return a if d_lon >= 0 else 360 - a


def GetAnglex(*points):
    return (bearing(*points),)


def GetAngle(lon1, lat1, h1, lon2, lat2, h2):
    g, dh = GetDistanceA(lon1, lat1, lon2, lat2)[0], h2 - h1
    return bearing(lon1, lat1, lon2, lat2), deg(atan(dh / g)), sqrt(dh * dh + g * g)


def CalculateAimLonLat(lon, lat, azimuth, dist):
    a, e2 = 6378245.0, 0.0067385241
    L, B, A = rad(lon), rad(lat), rad(azimuth)
    c2 = cos(B) * cos(B)
    alpha, V = sqrt(1 + e2 * (c2 * c2 * cos(B))), sqrt(1 + e2 * c2)
    sigma = dist * (V * V) / (sqrt(1 + e2) * a)
    den = max(cos(B) * V - cos(A) * sin(B) * tan(sigma), 0.001)
    L2 = L + atan(sin(A) * tan(sigma) * alpha / den) / alpha
    t = tan((L2 - L) * alpha / 2)
    delta = asin(sin(sigma) * (cos(A) - t * sin(A) * sin(B) / alpha)) / 2
    B2 = B + 2 * delta * (V - 1.5 * e2 * delta * sin(2 * B + 4 / 3 * V * delta))
    return deg(L2), deg(B2)


def CalculateAimLonLatB(lon, lat, azimuth, dist):
    a, b, f = 6378137.0, 6356752.3142, 0.0033528106643315515
    alpha1 = rad(azimuth)
    tan_u1 = (1 - f) * tan(rad(lat))
    cos_u1 = 1 / sqrt(1 + tan_u1 * tan_u1)
    sin_u1 = tan_u1 * cos_u1
    sigma1 = atan2(tan_u1, cos(alpha1))
    sin_alpha = cos_u1 * sin(alpha1)
    cos2_alpha = 1 - sin_alpha * sin_alpha
    u2 = cos2_alpha * (a * a - b * b) / (b * b)
    A = 1 + u2 / 16384 * (4096 + u2 * (-768 + u2 * (320 - 175 * u2)))
    B = u2 / 1024 * (256 + u2 * (-128 + u2 * (74 - 47 * u2)))
    sigma, previous = dist / (b * A), 2 * PI
    while abs(sigma - previous) > 1e-12:
        c2sm = cos(2 * sigma1 + sigma)
        s, c = sin(sigma), cos(sigma)
        delta = B * s * (c2sm + B / 4 * (c * (-1 + 2 * (c2sm * c2sm))
                                         - B / 6 * c2sm * (-3 + 4 * (s * s)) * (-3 + 4 * (c2sm * c2sm))))
        previous = sigma
        sigma = dist / (b * A) + delta
    x = sin_u1 * s - cos_u1 * c * cos(alpha1)
    lat2 = atan2(sin_u1 * c + cos_u1 * s * cos(alpha1), (1 - f) * sqrt(sin_alpha * sin_alpha + x * x))
    lam = atan2(s * sin(alpha1), cos_u1 * c - sin_u1 * s * cos(alpha1))
    C = f / 16 * cos2_alpha * (4 + f * (4 - 3 * cos2_alpha))
    L = lam - (1 - C) * f * sin_alpha * (sigma + C * s * (c2sm + C * c * (-1 + 2 * (c2sm * c2sm))))
    return lon + deg(L), deg(lat2)


def CalculateAimLonLatC(lon, lat, azimuth, dist):
    k = dist / 1000
    return lon + sin(rad(azimuth)) * k / (cos(rad(lat)) * 111.199), lat + cos(rad(azimuth)) * k / 111.199


def ConvertRangeAzimtoLonlat(lon, lat, distance, azimuth):
    delta, phi, theta = distance / 6378245.0, rad(lat), rad(azimuth)
    c = acos(cos(theta) * sin(delta) * cos(phi) + cos(delta) * sin(phi))
    return lon + deg(asin(sin(theta) * sin(delta) / sin(c))), 90 - deg(c)


def GetNearestDistance(lon1, lat1, lon2, lat2, lon, lat):
    a = GetDistanceA(lon1, lat1, lon2, lat2)[0]
    b = GetDistanceA(lon2, lat2, lon, lat)[0]
    c = GetDistanceA(lon1, lat1, lon, lat)[0]
    if b * b >= a * a + c * c:
        return c, lon1, lat1
    if c * c >= a * a + b * b:
        return b, lon2, lat2
    s = (a + b + c) / 2
    if s - a < 2.0:
        return 0.0, lon, lat
    h = 2 * sqrt((s - c) * (s - a) * s * (s - b)) / a
    return h, *CalculateAimLonLat(lon1, lat1, bearing(lon1, lat1, lon2, lat2), sqrt(c * c - h * h))


def PointLine_Disp(px, py, x1, y1, x2, y2):
    def clamp(t):
        return 1.0 if t - 1 > 1e-5 else t
    a = sqrt((px - x1) * (px - x1) + (py - y1) * (py - y1))
    b = sqrt((px - x2) * (px - x2) + (py - y2) * (py - y2))
    c = sqrt((x1 - x2) * (x1 - x2) + (y1 - y2) * (y1 - y2))
    if a == 0 or b == 0:
        return (0.0,)
    if c == 0:
        return (a,)
    if b > a:
        if y1 != y2:
            segment = cos(clamp((x2 - x1) / c))
            if y1 > y2:
                segment = 2 * PI - segment
        else:
            segment = 0.0 if x2 > x1 else PI
        point, r = acos(clamp((px - x1) / a)), a
        if y1 > py:
            point = 2 * PI - point
    else:
        if y1 != y2:
            segment = acos(clamp((x1 - x2) / c))
            if y2 > y1:
                segment = 2 * PI - segment
        else:
            segment = PI if x2 > x1 else 0.0
        point, r = acos(clamp((px - x2) / b)), b
        if y2 > py:
            point = 2 * PI - point
    d = abs(point - segment)
    if d > PI:
        d = 2 * PI - d
    return (r if d > PI / 2 else sin(d) * r,)


for line in sys.stdin:
    name, *arguments = line.split()
    print(*(float(value).hex() for value in globals()[name](*map(float.fromhex, arguments))))
