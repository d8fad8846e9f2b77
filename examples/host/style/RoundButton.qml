import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import QtQuick.Controls.impl 2.15
import QtQuick.Controls.Universal 2.15

// A round button on the accent that shows a sign only.
T.RoundButton {
    id: button

    implicitWidth: 40
    implicitHeight: 40
    icon.width: 18
    icon.height: 18
    icon.color: "white"
    opacity: enabled ? 1 : 0.4

    contentItem: IconLabel {
        display: T.AbstractButton.IconOnly
        icon: button.icon
    }

    background: Rectangle {
        radius: height / 2
        color: button.down ? Qt.darker(Universal.accent, 1.3) : button.hovered ? Qt.lighter(Universal.accent, 1.15) : Universal.accent
        border.width: button.visualFocus ? 2 : 0
        border.color: Universal.foreground
    }
}
