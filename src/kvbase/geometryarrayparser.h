/// \file
/// GeometryArrayParser: the reader of stored window geometries.
#ifndef KVBASE_GEOMETRYARRAYPARSER_H
#define KVBASE_GEOMETRYARRAYPARSER_H

#include "kvbase/kvbase_export.h"

#include <QString>
#include <QVector>

/// Reads the "Geometry" text that applications store for their windows.
///
/// Format: one or more window records separated by ';'. A record is six
/// integers separated by ',':  screen,x,y,width,height,state
///   screen  index of the screen the window was on (0 = first)
///   x, y    top-left corner in that screen's coordinates
///   width, height  size in pixels, both above 0
///   state   0 normal, 1 minimised, 2 maximised, 3 full screen
/// Blanks around numbers are allowed; an empty record (a trailing ';') is
/// skipped. Any other text makes the whole array invalid.
/// Example: "1,100,80,1024,768,0;0,0,0,400,300,2"
class KVBASE_EXPORT GeometryArrayParser
{
public:
    /// One window record.
    struct Geometry
    {
        /// Index of the screen (0 = first); -1 in a default record.
        int screen = -1;
        /// Left edge in the screen's coordinates.
        int x = 0;
        /// Top edge in the screen's coordinates.
        int y = 0;
        /// Width in pixels.
        int width = 0;
        /// Height in pixels.
        int height = 0;
        /// 0 normal, 1 minimised, 2 maximised, 3 full screen.
        int state = 0;
    };

    /// Parses `text` at once; see IsValid.
    explicit GeometryArrayParser(const QString& text);

    /// True when the text held at least one record and followed the format throughout.
    bool IsValid() const { return m_bValid; }
    /// The number of records read; 0 for an invalid text.
    int Count() const { return m_geometries.size(); }
    /// The record at `index`; a default record (screen -1) when there is none.
    Geometry At(int index) const;
    /// The screen of the record at `index`, -1 when the text is invalid or has no such record.
    int GetScreen(int index = 0) const { return At(index).screen; }

private:
    static bool ParseRecord(const QString& record, Geometry& geometry);

    bool m_bValid = false;
    QVector<Geometry> m_geometries;
};

#endif
