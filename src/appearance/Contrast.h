#pragma once

#include <QColor>
#include <QHash>
#include <QList>

// Text contrast as the web's accessibility guidelines measure it: the ratio
// of the lighter colour's relative luminance to the darker one's (each plus
// 0.05), from 1:1 (the same colour) to 21:1 (black on white).
namespace Contrast {

// What normal-sized text needs against its background.
constexpr double Minimum = 4.5;

double luminance(const QColor& colour);
double ratio(const QColor& a, const QColor& b);

// colour, lightened or darkened as little as it takes (same hue and
// saturation) to reach `minimum` against every one of backgrounds; black or
// white when no shade of it does. A colour that already passes comes back as
// it is. The result is opaque and exact in 8 bits a channel, so that its
// "#RRGGBB" name passes as well.
QColor readable(const QColor& colour, const QList<QColor>& backgrounds, double minimum = Minimum);
inline QColor readable(const QColor& colour, const QColor& background, double minimum = Minimum)
{
    return readable(colour, QList<QColor> { background }, minimum);
}

// readable() for one background, remembered per colour: for painting the
// same few colours (nick colours, say) over and over on one background.
class ReadableOn
{
public:
    explicit ReadableOn(const QColor& background = Qt::white)
        : m_background(background)
    { }
    QColor background() const { return m_background; }
    QColor operator()(const QColor& colour) const;

private:
    QColor m_background;
    mutable QHash<QRgb, QColor> m_known;
};

} // namespace Contrast
