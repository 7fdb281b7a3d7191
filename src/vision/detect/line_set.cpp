// Lines, point sets and linked line sets of the page detector.
//
// Every record is a plain C struct on the C heap: CreateLine, CreatPointSet
// and CreatLineSet hand out zeroed records from calloc, and point arrays are
// calloc'd copies made by SetPointSetPoints, so DeleteLine can free a line
// with whatever points it holds. A line set is a singly linked list that owns
// its lines; positions count from 0 at the head.
//
// Out-of-range positions are clamped, never rejected: ADDLine2LineSet inserts
// at min(position, count) (negative positions insert at the head, and the
// detector appends by passing 100000), and GetLine returns null for any index
// at or past the end (or negative). DeleteLineFromSet only deletes a line that
// is actually linked in the set; a stranger is left alone, since freeing it
// here could free a line its real owner still uses. Null arguments are
// ignored, and the count is always the number of linked lines.
#include <cstdlib>
#include <cstring>

#include "vision/detect/geometry.h"

tem_Line* CreateLine() {
    return static_cast<tem_Line*>(std::calloc(1, sizeof(tem_Line)));
}

tem_PointSet* CreatPointSet() {
    return static_cast<tem_PointSet*>(std::calloc(1, sizeof(tem_PointSet)));
}

temp_LineSet* CreatLineSet() {
    return static_cast<temp_LineSet*>(std::calloc(1, sizeof(temp_LineSet)));
}

bool SetPointSetPoints(tem_PointSet* set, const tem_Point* points, int32_t count) {
    if (!set || count < 0 || (count > 0 && !points)) return false;
    tem_Point* copy = nullptr;
    if (count > 0) {
        copy = static_cast<tem_Point*>(std::calloc(static_cast<size_t>(count), sizeof(tem_Point)));
        if (!copy) return false;  // the old points stay as they were
        std::memcpy(copy, points, static_cast<size_t>(count) * sizeof(tem_Point));
    }
    std::free(set->points);
    set->points = copy;
    set->count = count;
    return true;
}

void DeletePointSet(tem_PointSet* set) {
    if (!set) return;
    std::free(set->points);
    std::free(set);
}

void ADDLine2LineSet(temp_LineSet* set, tem_Line* line, int32_t position) {
    if (!set || !line) return;
    if (position <= 0 || !set->head) {
        line->next = set->head;
        set->head = line;
    } else {
        // Walk to the line after which the new one goes: index min(position, count) - 1.
        tem_Line* prev = set->head;
        for (int32_t i = 1; i < position && prev->next; ++i) prev = prev->next;
        line->next = prev->next;
        prev->next = line;
    }
    ++set->count;
}

tem_Line* GetLine(const temp_LineSet* set, int32_t index) {
    if (!set || index < 0) return nullptr;
    tem_Line* line = set->head;
    for (int32_t i = 0; i < index && line; ++i) line = line->next;
    return line;
}

void DeleteLine(tem_Line* line) {
    if (!line) return;
    DeletePointSet(line->points);
    std::free(line);
}

void DeleteLineFromSet(temp_LineSet* set, tem_Line* line) {
    if (!set || !line) return;
    for (tem_Line** link = &set->head; *link; link = &(*link)->next) {
        if (*link == line) {
            *link = line->next;
            --set->count;
            DeleteLine(line);
            return;
        }
    }
}

void DeleteLineSet(temp_LineSet* set) {
    if (!set) return;
    tem_Line* line = set->head;
    while (line) {
        tem_Line* next = line->next;
        DeleteLine(line);
        line = next;
    }
    std::free(set);
}
