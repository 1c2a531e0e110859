#include "kvbase/geometryarrayparser.h"

#include <QStringList>

GeometryArrayParser::GeometryArrayParser(const QString& text)
{
    for (const QString& record : text.split(QLatin1Char(';'))) {
        if (record.trimmed().isEmpty())
            continue;
        Geometry geometry;
        if (!ParseRecord(record, geometry)) {
            m_geometries.clear();
            return;
        }
        m_geometries.append(geometry);
    }
    m_bValid = !m_geometries.isEmpty();
}

bool GeometryArrayParser::ParseRecord(const QString& record, Geometry& geometry)
{
    const QStringList fields = record.split(QLatin1Char(','));
    if (fields.size() != 6)
        return false;
    int numbers[6];
    for (int i = 0; i < 6; ++i) {
        bool ok = false;
        numbers[i] = fields[i].trimmed().toInt(&ok, 10);
        if (!ok)
            return false;
    }
    geometry = Geometry{numbers[0], numbers[1], numbers[2], numbers[3], numbers[4], numbers[5]};
    return geometry.screen >= 0 && geometry.width > 0 && geometry.height > 0 && geometry.state >= 0 &&
           geometry.state <= 3;
}

GeometryArrayParser::Geometry GeometryArrayParser::At(int index) const
{
    if (index < 0 || index >= m_geometries.size())
        return Geometry();
    return m_geometries[index];
}
