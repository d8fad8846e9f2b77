#pragma once

#include <QtCore/QVector>

/// Frequency and amplitude of each bin of a transform.
class FrequencySpectrum
{
public:
    struct Element
    {
        double frequency = 0; ///< Hz
        double amplitude = 0; ///< 0 to 1
    };

    explicit FrequencySpectrum(int count)
        : m_elements(count)
    {}

    void reset() { m_elements.fill({}); }
    int count() const { return m_elements.count(); }
    Element& operator[](int index) { return m_elements[index]; }
    const Element& operator[](int index) const { return m_elements[index]; }

    auto begin() { return m_elements.begin(); }
    auto begin() const { return m_elements.begin(); }
    auto end() { return m_elements.end(); }
    auto end() const { return m_elements.end(); }

private:
    QVector<Element> m_elements;
};
