#include "Contrast.h"

#include <QtMath>

namespace Contrast {

namespace {

double linear(int channel)
{
    const double c = channel / 255.0;
    return c <= 0.04045 ? c / 12.92 : qPow((c + 0.055) / 1.055, 2.4);
}

double worst(const QColor& colour, const QList<QColor>& backgrounds)
{
    double lowest = 21;
    for (const QColor& background : backgrounds)
        lowest = qMin(lowest, ratio(colour, background));
    return lowest;
}

// The shade of colour at HSL lightness, rounded to 8 bits a channel.
QColor shade(const QColor& hsl, double lightness)
{
    const QColor c = QColor::fromHslF(hsl.hslHueF(), hsl.hslSaturationF(), float(lightness)).toRgb();
    return QColor(c.red(), c.green(), c.blue());
}

} // namespace

double luminance(const QColor& colour)
{
    const QColor c = colour.toRgb();
    return 0.2126 * linear(c.red()) + 0.7152 * linear(c.green()) + 0.0722 * linear(c.blue());
}

double ratio(const QColor& a, const QColor& b)
{
    const double la = luminance(a);
    const double lb = luminance(b);
    return (qMax(la, lb) + 0.05) / (qMin(la, lb) + 0.05);
}

QColor readable(const QColor& colour, const QList<QColor>& backgrounds, double minimum)
{
    const QColor opaque(colour.red(), colour.green(), colour.blue());
    if (backgrounds.isEmpty() || worst(opaque, backgrounds) >= minimum)
        return opaque;

    // Walk the lightness both ways in small steps; the nearer shade that
    // passes wins.
    const QColor hsl = opaque.toHsl();
    const double start = hsl.lightnessF();
    constexpr double Step = 1.0 / 256;
    for (double d = Step; d <= 1 + Step; d += Step) {
        for (const double lightness : { start - d, start + d }) {
            if (lightness < 0 || lightness > 1)
                continue;
            const QColor candidate = shade(hsl, lightness);
            if (worst(candidate, backgrounds) >= minimum)
                return candidate;
        }
    }
    const QColor black(Qt::black);
    const QColor white(Qt::white);
    return worst(black, backgrounds) >= worst(white, backgrounds) ? black : white;
}

QColor ReadableOn::operator()(const QColor& colour) const
{
    const QRgb key = colour.rgb();
    const auto it = m_known.constFind(key);
    if (it != m_known.constEnd())
        return *it;
    const QColor result = readable(colour, m_background);
    m_known.insert(key, result);
    return result;
}

} // namespace Contrast
